// Configuration sessions of the module's own: an engine object that holds the engine's write lock and is initialized.
//
// Every user opens and closes its own; nothing is shared or kept. A session belongs to the thread that opened it. All
// results are COM result codes; a negative one is a failure.
#pragma once

#include <memory>

#include "platform/netcfg.h"
#include "platform/types.h"

namespace ztl {

// Opens a session on a thread that has initialized COM for it. Waits up to 15 seconds for the write lock;
// NETCFG_E_NO_WRITE_LOCK when another client kept it. After a failure `*session` is untouched and COM has been
// uninitialized once; after any other result the caller closes the session with HrReleaseINetCfg.
platform::HRESULT HrGetINetCfg(platform::INetCfg** session);

// Closes a session: uninitializes it, releases the write lock when `hasWriteLock` is set, releases the reference and
// uninitializes COM once, whatever fails on the way. The result of the last step that was made of the first two.
platform::HRESULT HrReleaseINetCfg(bool hasWriteLock, platform::INetCfg* session);

// Installs a component of the class through the session. A positive result is the engine's own.
platform::HRESULT HrInstallNetComponent(platform::INetCfg* session, const char16_t* componentId,
                                        const platform::GUID& classGuid);

struct CloseSession {
  void operator()(platform::INetCfg* session) const { HrReleaseINetCfg(true, session); }
};
using UniqueSession = std::unique_ptr<platform::INetCfg, CloseSession>;

// Initializes COM on this thread and opens a session. `session` owns one after every result that is no failure, a
// positive one included.
platform::HRESULT HrOpenSession(UniqueSession& session);

}  // namespace ztl
