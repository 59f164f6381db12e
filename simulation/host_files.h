// The files of the system that the simulation runs on, one source for each kind of host.
//
// Operations fail with -1 (or false), `errno` set to the number that the Windows runtime would give. Sizes and offsets
// are in bytes.
#pragma once

#include <cstddef>
#include <filesystem>

#include "platform/types.h"

namespace simulation::host {

// Where a link leads: empty when `path` is none. (On Windows every link counts as one to an absolute path.)
std::filesystem::path LinkTarget(const std::filesystem::path& path);

// Opens a file for reading and writing, but no link. Returns the host's descriptor, which Close closes.
int Open(const std::filesystem::path& path, bool create, bool truncate);
int Close(int file);
platform::LONG Length(int file);
platform::LONG Seek(int file, platform::LONG offset, int origin);  // returns the new position from the start
// In text translation mode: return the bytes of the buffer that were filled or written.
int Read(int file, void* buffer, platform::UINT bytes);
int Write(int file, const void* buffer, platform::UINT bytes);
bool TryLock(int file, platform::LONG bytes);  // from the current position; RUNTIME_EACCES: another holds it
int Unlock(int file, platform::LONG bytes);
int MakeDirectory(const std::filesystem::path& path);

// Gives the memory's whole pages back where the host can; nobody may read them any more.
void DropMemory(const char* memory, std::size_t bytes);

}  // namespace simulation::host
