// Opening and closing the module log, at the process's attach and detach.
#pragma once

namespace ztl {

void OpenModuleLog();   // "ztlinst.log" in the "temp" folder of the Windows directory; a failure leaves no log
void CloseModuleLog();  // from here on every message is dropped

}  // namespace ztl
