#include "protocol/reply.h"

#include <gtest/gtest.h>

#include <string>

namespace zot {
namespace {

TEST(Reply, LinesAndFormats) {
    Reply reply;
    reply.Start("500", "discarded");
    reply.Start("200");
    reply.AppendLine("a\r\nb", Escaping::kLineBreaks);
    reply.AppendLine("plain\n");  // ends its own line, so one more line feed follows
    reply.AppendFlag(true);
    reply.AppendInt(-3);
    reply.AppendInt64(42);
    reply.AppendInt64(123456789012);
    reply.AppendDouble(3.5);
    std::tm time{};
    time.tm_mday = 5;
    time.tm_mon = 2;
    time.tm_year = 119;
    time.tm_hour = 7;
    time.tm_min = 8;
    time.tm_sec = 9;
    reply.AppendDate(time);
    reply.AppendRaw("raw");
    reply.AppendLine("");
    reply.Finish();
    EXPECT_EQ(reply.Text(),
              "200\na%0D%0Ab\nplain\n\n1\n-3\n    42\n123456789012\n3.5000\n05032019070809\n"
              "raw\n\n\r");
    EXPECT_EQ(reply.Code(), "200");
}

TEST(Reply, FormattedTextIsBounded) {
    Reply reply;
    auto lengthAfter = [&reply](size_t n) {
        reply.Start("");
        reply.AppendFormatted("%s", std::string(n, 'x').c_str());
        return reply.Text().Length();
    };
    EXPECT_EQ(lengthAfter(2047), 2048);
    EXPECT_EQ(lengthAfter(2048), 2048);  // the last character is lost
    EXPECT_EQ(lengthAfter(2049), 0);
    EXPECT_EQ(reply.Code(), "");
}

}  // namespace
}  // namespace zot
