// Makes the kinds of entries that a file test can meet.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace zot::test {

// Each makes one entry at the path and throws when it cannot.
void MakeFolder(const std::string& path, unsigned mode = 0755);
void MakeFile(const std::string& path, int64_t size = 0, unsigned mode = 0644);  // sparse
void MakeFifo(const std::string& path);
void MakeSocket(const std::string& path);
void MakeLink(const std::string& target, const std::string& path);
void SetMode(const std::string& path, unsigned mode);
void SetModificationTime(const std::string& path, time_t seconds);

}  // namespace zot::test
