// Many lines of the module's log, each of which names its writer.
#pragma once

#include <cstddef>
#include <string>

namespace ztl_conformance {

// Makes a notify object through COM and asks it about `count` binding paths, which is worth three lines each; the third
// holds "PathToken <NAME:NUMBER:filler>", the filler being `fillerBytes` times the name's last character. False when
// there is no notify object.
bool WriteLines(const std::string& name, int count, std::size_t fillerBytes);

}  // namespace ztl_conformance
