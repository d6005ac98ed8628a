// The handlers of the file tests and of the file listing. Each takes the parameter lines of its
// request (everything after the command line) and builds the whole reply. Lines are numbered from 1
// and read trimmed.
#pragma once

#include <string_view>

#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// "TEST-UNC": 1 path. Replies with the total, free and available bytes of its file system, and the
// milliseconds that the question took.
void TestUnc(std::string_view params, const AgentSettings& settings, Reply& reply);

// "TEST-FolderSize": 1 folder, or folder/mask; 2 include subfolders; 8 resolve file macros.
void TestFolderSize(std::string_view params, const AgentSettings& settings, Reply& reply);

// "TEST-CountFiles": 1 folder; 2 mask; 3 include subfolders; 4 mode; 5 value of the mode;
// 11 resolve file macros.
void TestCountFiles(std::string_view params, const AgentSettings& settings, Reply& reply);

// "TEST-FileExists": 1 path, whose name may be a mask; 7 resolve file macros. Replies with size,
// times, the path found and the age in minutes.
void TestFileExists(std::string_view params, const AgentSettings& settings, Reply& reply);

// "TEST-FileCompare": 1 mode; 2 first file; 3 second file or text; flags by mode, see
// file_compare.cpp.
void TestFileCompare(std::string_view params, const AgentSettings& settings, Reply& reply);

// "TEST-FileHash": 1 file; 2 algorithm; 3 size limit.
void TestFileHash(std::string_view params, const AgentSettings& settings, Reply& reply);

// "GetFilesList": 1 folder; 2 mask; then flags: 3 folders, 4 files, 5 hidden, 6 system entries,
// 7 size, 8 change time, 9 modification time.
void GetFilesList(std::string_view params, const AgentSettings& settings, Reply& reply);

}  // namespace zot
