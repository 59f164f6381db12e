// What the simulation needs of the system that it runs on, one file for each kind of host.
//
// The file operations fail with -1 (or false), `errno` set to the number that the Windows runtime would give.
#pragma once

#include <filesystem>

#include "platform/types.h"

namespace simulation::host {

int Open(const std::filesystem::path& path, bool create, bool truncate);  // read-write
int Close(int file);
platform::LONG Length(int file);
platform::LONG Seek(int file, platform::LONG offset, int origin);
int Read(int file, void* buffer, platform::UINT bytes);         // in text translation mode
int Write(int file, const void* buffer, platform::UINT bytes);  // in text translation mode
bool TryLock(int file, platform::LONG bytes);  // from the current position; errno 13: another holder is there
int Unlock(int file, platform::LONG bytes);
int MakeDirectory(const std::filesystem::path& path);

}  // namespace simulation::host
