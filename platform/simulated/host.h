// What the simulation needs of the system that it runs on, one file for each kind of host.
//
// The file operations fail with -1 (or false), `errno` set to the number that the Windows runtime would give.
#pragma once

#include <filesystem>

#include "platform/types.h"

namespace platform::simulated::host {

int Open(const std::filesystem::path& path, bool create, bool truncate);  // read-write
int Close(int file);
LONG Length(int file);
LONG Seek(int file, LONG offset, int origin);
int Read(int file, void* buffer, UINT bytes);         // in text translation mode
int Write(int file, const void* buffer, UINT bytes);  // in text translation mode
bool TryLock(int file, LONG bytes);                   // from the current position; errno 13: another holder is there
int Unlock(int file, LONG bytes);
int MakeDirectory(const std::filesystem::path& path);

bool OutputIsTerminal();   // standard output is one, and shows colour
void WriteOutputAsUtf8();  // standard output takes UTF-8 from here on

}  // namespace platform::simulated::host
