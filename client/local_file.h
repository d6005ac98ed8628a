// Reads and writes whole local files. Operations return true, or false with the error as a
// sentence.
#pragma once

#include <string>
#include <string_view>

namespace zot::client {

// Reads a regular file of at most `maxSize` bytes.
bool ReadWholeFile(const std::string& path, size_t maxSize, std::string& content,
                   std::string& error);

// Reads the first line, without the blanks around it, of anything that can be read, even a pipe.
bool ReadFirstLine(const std::string& path, std::string& line, std::string& error);

// Replaces a file by one with this content, readable only by its owner. Readers find either the old
// or the new one whole, even if the write is cut off. REQUIRES that nobody else writes the same
// path meanwhile.
bool ReplaceFile(const std::string& path, std::string_view content, std::string& error);

// "cannot read PATH: " and the system's words for the error number.
std::string FileError(std::string_view action, const std::string& path, int errorNumber);

}  // namespace zot::client
