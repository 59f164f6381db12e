// The drive of swept runs.
#pragma once

#include <string>

namespace simulation::host {

std::string& MemoryFile(const std::string& path);  // made when it is missing
void ClearMemoryFiles();

}  // namespace simulation::host
