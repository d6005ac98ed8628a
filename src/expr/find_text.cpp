#include "expr/find_text.h"

#include <array>
#include <bit>
#include <cstring>
#include <tuple>
#include <utility>
#include <vector>

#include "base/ascii.h"

namespace zot {
namespace {

constexpr size_t kNone = static_cast<size_t>(-1);

// What logs are made of, the most frequent byte first; every other byte is rarer.
constexpr std::string_view kFrequentBytes =
    " e0t1a2o3i5n4s:r-69d7l8./cup,m\"hgf=_b[]T/y()vwIEkS;xAN{}zDCOMPRqLj";

constexpr std::array<uint8_t, 256> MakeRanks() {
    std::array<uint8_t, 256> ranks{};
    for (size_t i = 0; i < kFrequentBytes.size(); ++i) {
        auto& rank = ranks[static_cast<uint8_t>(kFrequentBytes[i])];
        if (rank == 0) rank = static_cast<uint8_t>(kFrequentBytes.size() - i);
    }
    return ranks;
}

constexpr std::array<uint8_t, 256> kFrequencyRank = MakeRanks();

// A pattern that lives elsewhere.
struct Needle {
    std::string_view bytes;
    bool caseSensitive;
    bool wholeWord;
    PatternByte rarest;
    PatternByte nextRarest;
};

bool IsLowerLetter(char c) { return c >= 'a' && c <= 'z'; }

PatternByte ByteAt(std::string_view pattern, size_t offset, bool caseSensitive) {
    bool anyCase = !caseSensitive && IsLowerLetter(pattern[offset]);
    return {offset, static_cast<uint8_t>(anyCase ? 'a' - 'A' : 0),
            static_cast<uint8_t>(pattern[offset])};
}

// Chooses the two rarest bytes, at different places if the pattern has two.
std::pair<PatternByte, PatternByte> RareBytes(std::string_view pattern, bool caseSensitive) {
    if (pattern.empty()) return {};
    auto rank = [&](size_t at) { return kFrequencyRank[static_cast<uint8_t>(pattern[at])]; };
    size_t best = 0;
    size_t second = pattern.size() - 1;
    for (size_t i = 1; i < pattern.size(); ++i) {
        if (rank(i) < rank(best)) {
            second = std::exchange(best, i);
        } else if (second == best || rank(i) < rank(second)) {
            second = i;
        }
    }
    return {ByteAt(pattern, best, caseSensitive), ByteAt(pattern, second, caseSensitive)};
}

// Sixteen neighbouring bytes, for which every target has instructions or a short sequence.
using Block = uint8_t __attribute__((vector_size(16)));
constexpr size_t kBlock = sizeof(Block);

Block LoadBlock(const char* at) {
    Block block;
    std::memcpy(&block, at, sizeof block);
    return block;
}

// 0xFF in each of the 16 places with the wanted byte, 0 in the others.
struct ByteMatcher {
    explicit ByteMatcher(const PatternByte& byte)
        : caseBits(Block{} + byte.caseBit), values(Block{} + byte.value) {}
    Block At(const char* text) const {
        return reinterpret_cast<Block>((LoadBlock(text) | caseBits) == values);
    }

    Block caseBits;
    Block values;
};

std::array<uint64_t, 2> Halves(Block block) {
    return std::bit_cast<std::array<uint64_t, 2>>(block);
}

bool AnySet(Block block) {
    auto [low, high] = Halves(block);
    return (low | high) != 0;
}

// One search in one text.
class Search {
  public:
    Search(const Needle& needle, std::string_view text, size_t begin)
        : needle_(needle),
          text_(text),
          begin_(begin),
          end_(text.size() - needle.bytes.size() + 1),
          rarest_(needle.rarest),
          nextRarest_(needle.nextRarest) {}

    // REQUIRES: the pattern is not empty and fits between `begin` and the end of the text.
    size_t Run() {
        size_t at = begin_;
        for (; end_ - at >= 4 * kBlock; at += 4 * kBlock) {
            Block hits[4] = {HitsAt(at), HitsAt(at + kBlock), HitsAt(at + 2 * kBlock),
                             HitsAt(at + 3 * kBlock)};
            if (!AnySet((hits[0] | hits[1]) | (hits[2] | hits[3]))) continue;
            for (size_t i = 0; i < 4; ++i) {
                if (TryHits(at + i * kBlock, hits[i])) return result_;
            }
        }
        for (; end_ - at >= kBlock; at += kBlock) {
            Block hits = HitsAt(at);
            if (AnySet(hits) && TryHits(at, hits)) return result_;
        }
        return RunTail(at);
    }

  private:
    // Fewer than 16 positions are left: one block overlaps those searched before, if any.
    size_t RunTail(size_t at) {
        if (at < end_ && end_ - begin_ >= kBlock) {
            size_t overlapping = end_ - kBlock;
            return TryHits(overlapping, HitsAt(overlapping)) ? result_ : kNone;
        }
        for (; at < end_; ++at) {
            if (SameByte(needle_.rarest, at) && Try(at)) return result_;
        }
        return kNone;
    }

    char Fold(char c) const { return needle_.caseSensitive ? c : LowerAscii(c); }

    bool SameByte(const PatternByte& byte, size_t at) const {
        return (static_cast<uint8_t>(text_[at + byte.offset]) | byte.caseBit) == byte.value;
    }

    Block HitsAt(size_t at) const {
        const char* text = text_.data() + at;
        return rarest_.At(text + needle_.rarest.offset) &
               nextRarest_.At(text + needle_.nextRarest.offset);
    }

    // Tries the marked positions of a block in their order; true ends the search.
    bool TryHits(size_t at, Block hits) {
        for (uint64_t half : Halves(hits)) {
            while (half != 0) {
                size_t byte = FirstByte(half);
                if (Try(at + byte)) return true;
                half &= ~ByteMask(byte);
            }
            at += sizeof half;
        }
        return false;
    }

    static size_t FirstByte(uint64_t half) {
        constexpr bool kLittle = std::endian::native == std::endian::little;
        return static_cast<size_t>(kLittle ? std::countr_zero(half) : std::countl_zero(half)) / 8;
    }
    static uint64_t ByteMask(size_t byte) {
        constexpr bool kLittle = std::endian::native == std::endian::little;
        return uint64_t{0xFF} << 8 * (kLittle ? byte : 7 - byte);
    }

    // Compares the whole pattern; true, with the result set, when the search is over.
    bool Try(size_t at) {
        size_t same = 0;
        while (same < needle_.bytes.size() && Fold(text_[at + same]) == needle_.bytes[same]) ++same;
        if (same == needle_.bytes.size() && Acceptable(at)) {
            result_ = at;
            return true;
        }
        compared_ += same;
        // When it has compared far more bytes than there are, the pattern repeats itself, and so
        // does the text.
        if (compared_ < 1024 + 4 * (at - begin_ + needle_.bytes.size())) return false;
        result_ = FindWithPrefixTable(at + 1);
        return true;
    }

    bool Acceptable(size_t at) const {
        if (!needle_.wholeWord) return true;
        size_t behind = at + needle_.bytes.size();
        return (at == 0 || !IsAlnum(text_[at - 1])) &&
               (behind == text_.size() || !IsAlnum(text_[behind]));
    }

    // The method of Knuth, Morris and Pratt: no byte of the text is looked at again.
    size_t FindWithPrefixTable(size_t from) const {
        std::string_view pattern = needle_.bytes;
        std::vector<uint32_t> borders(pattern.size());
        auto extend = [&](uint32_t matched, char c) {
            while (matched > 0 && (matched == pattern.size() || pattern[matched] != c)) {
                matched = borders[matched - 1];
            }
            return pattern[matched] == c ? matched + 1 : matched;
        };
        for (size_t i = 1; i < pattern.size(); ++i) {
            borders[i] = extend(borders[i - 1], pattern[i]);
        }
        uint32_t matched = 0;
        for (size_t i = from; i < text_.size(); ++i) {
            matched = extend(matched, Fold(text_[i]));
            if (matched == pattern.size() && Acceptable(i + 1 - matched)) return i + 1 - matched;
        }
        return kNone;
    }

    const Needle& needle_;
    std::string_view text_;
    size_t begin_;
    size_t end_;  // after the last position at which the pattern fits
    ByteMatcher rarest_;
    ByteMatcher nextRarest_;
    size_t compared_ = 0;
    size_t result_ = kNone;
};

int64_t FindNeedle(const Needle& needle, std::string_view text, int64_t start) {
    size_t length = needle.bytes.size();
    if (length == 0 || start < 1 || text.size() < length) return 0;
    auto begin = static_cast<size_t>(start) - 1;
    if (begin > text.size() - length) return 0;
    return static_cast<int64_t>(Search(needle, text, begin).Run() + 1);  // kNone becomes 0
}

}  // namespace

TextPattern::TextPattern(std::string_view pattern, bool caseSensitive, bool wholeWord)
    : pattern_(pattern), caseSensitive_(caseSensitive), wholeWord_(wholeWord) {
    if (!caseSensitive) pattern_.LowerCase();
    std::tie(rarest_, nextRarest_) = RareBytes(pattern_.View(), caseSensitive);
}

int64_t TextPattern::Find(std::string_view text, int64_t start) const {
    return FindNeedle({pattern_.View(), caseSensitive_, wholeWord_, rarest_, nextRarest_}, text,
                      start);
}

int64_t FindText(std::string_view text, std::string_view pattern, bool caseSensitive,
                 bool wholeWord) {
    if (!caseSensitive) return TextPattern(pattern, caseSensitive, wholeWord).Find(text);
    auto [rarest, nextRarest] = RareBytes(pattern, caseSensitive);
    return FindNeedle({pattern, caseSensitive, wholeWord, rarest, nextRarest}, text, 1);
}

}  // namespace zot
