#include "simulation/netcfg_engine/engine.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/com_ptr.h"
#include "platform/netcfg_notify.h"
#include "platform/registry_key.h"
#include "simulation/netcfg_engine/engine_host.h"
#include "simulation/netcfg_engine/stack_linkage.h"
#include "simulation/text_encoding.h"

namespace simulation {
namespace {

// The component whose notify object the sessions drive, and that object's class.
constexpr char16_t kNotifyingComponent[] = u"qro_ztl";
constexpr CLSID kNotifyClass{0x5B1E7C42, 0x93D0, 0x4F6A, {0x8E, 0x25, 0xC0, 0x7A, 0x1D, 0x39, 0xB4, 0xE8}};

// Where the components of a device class have their instance keys, and whether they have a device.
struct ComponentClass {
  GUID guid;
  const char16_t* key;
  bool isDevice;
};

const ComponentClass kClasses[] = {
    {GUID_DEVCLASS_NET, kNetClassKey, true},
    {{0x4D36E973, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}},
     u"SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E973-E325-11CE-BFC1-08002BE10318}",
     false},
    {GUID_DEVCLASS_NETSERVICE, kNetServiceKey, false},
    {GUID_DEVCLASS_NETTRANS, kNetTransKey, false},
};

using engine_host::State;

// A call with its object and arguments, as one line of text.
std::string RequestText(Operation operation, const Arguments& arguments) {
  std::string text = OperationName(operation);
  if (arguments.name != nullptr) text += " <" + Utf16ToUtf8(arguments.name) + ">";
  if (arguments.number != 0) text += " " + std::to_string(arguments.number);
  if (arguments.dataBytes != 0) text += " ";
  for (std::size_t i = 0; i < arguments.dataBytes; ++i) {
    const BYTE byte = static_cast<const BYTE*>(arguments.data)[i];
    for (const int digit : {byte >> 4, byte & 0xF}) text += "0123456789abcdef"[digit];
  }
  return text;
}

// One call of the engine. A fault with a failure's code ends it; one with the code of another success lets it
// happen and replaces its success (Result). What a call returns goes through Result or Answer, which record it.
class Call {
 public:
  explicit Call(Operation operation, const Arguments& arguments = {})
      : code_(engine_host::Enter(operation, arguments)) {
    ++State().callsUnderWay;
    if (!State().recordRequests) return;
    const std::lock_guard lock(engine_host::Mutex());
    request_ = State().requests.size();
    State().requests.push_back({RequestText(operation, arguments), S_OK});
  }
  ~Call() { --State().callsUnderWay; }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  bool Fails() const { return code_ && Failed(*code_); }
  HRESULT Result(HRESULT hr = S_OK) const { return Answer(code_ && Succeeded(hr) ? *code_ : hr); }
  HRESULT Answer(HRESULT hr) const {
    if (request_) {
      const std::lock_guard lock(engine_host::Mutex());
      State().requests[*request_].result = hr;
    }
    return hr;
  }

  std::optional<HRESULT> code_;  // of the fault, for calls that no success with another code happens for

 private:
  std::optional<std::size_t> request_;
};

// Around the engine's calls of the notify object, whose own calls are not the engine's.
class InNotifyObject {
 public:
  InNotifyObject() : callsUnderWay_(State().callsUnderWay.exchange(0)) {}
  ~InNotifyObject() { State().callsUnderWay = callsUnderWay_; }
  InNotifyObject(const InNotifyObject&) = delete;
  InNotifyObject& operator=(const InNotifyObject&) = delete;

 private:
  const int callsUnderWay_;
};

template <class I, const IID& Id>
struct Implements {
  using Interface = I;
  static constexpr const IID& kId = Id;
};

// Reference counting, and the answers of an object with some interfaces.
template <class First, class... More>
class Object : public First::Interface, public More::Interface... {
 public:
  Object() { ++State().objects; }
  virtual ~Object() { --State().objects; }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  HRESULT QueryInterface(REFIID riid, void** object) override {
    *object = nullptr;
    const Call call(Operation::QueryInterface, {.data = &riid, .dataBytes = sizeof(riid)});
    if (call.Fails()) return call.Result();
    Offer<First>(riid, object);
    (Offer<More>(riid, object), ...);
    if (riid == IID_IUnknown) *object = static_cast<typename First::Interface*>(this);
    if (*object == nullptr) return call.Answer(E_NOINTERFACE);
    AddRef();
    return call.Result();
  }
  ULONG AddRef() override { return ++references_; }
  ULONG Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

 private:
  template <class Offered>
  void Offer(REFIID riid, void** object) {
    if (riid == Offered::kId) *object = static_cast<typename Offered::Interface*>(this);
  }

  std::atomic<ULONG> references_{1};
};

HRESULT CopyToTask(const std::u16string& text, char16_t** result) {
  const std::size_t bytes = (text.size() + 1) * sizeof(char16_t);
  *result = static_cast<char16_t*>(CoTaskMemAlloc(bytes));
  if (*result == nullptr) return E_OUTOFMEMORY;
  std::memcpy(*result, text.c_str(), bytes);
  return S_OK;
}

// A path from a filter down to the bottom of a stack, as it is to be.
struct PathChange {
  FilterDriver filter;
  std::u16string bottom;
  std::u16string token;
  bool enable;
};

// What the client's engine object and all that came from it share.
struct Session {
  bool hasLock = false;
  bool initialized = false;
  std::vector<PathChange> changes;  // not applied yet
  ComPtr<INetCfgComponentControl> notifyObject;
  DWORD wantedNotices = 0;  // of other components

  // The stacks as they were when the session was initialized, or when its own Apply changed them last.
  std::optional<StackLinkage> stacks;
  HRESULT ReadStacks() {
    stacks = StackLinkage::Read();
    const LSTATUS rc = stacks->Error();
    if (rc != ERROR_SUCCESS) stacks.reset();
    return HresultFromError(rc);
  }
  // The code that a question about bindings gets before its answer. A transaction that others have opened reads the
  // stacks at its first one.
  HRESULT CheckAnswerable() {
    if (!initialized) return NETCFG_E_NOT_INITIALIZED;
    return stacks ? S_OK : ReadStacks();
  }

  bool IsEnabled(const FilterDriver& filter, const std::u16string& bottom) const {
    for (const PathChange& change : changes)
      if (change.filter.componentId == filter.componentId && change.bottom == bottom) return change.enable;
    return stacks->StandsIn(filter, bottom);
  }

  HRESULT CheckChangeable() const {
    return !initialized ? NETCFG_E_NOT_INITIALIZED : !hasLock ? NETCFG_E_NO_WRITE_LOCK : S_OK;
  }

  // Releases the notify object. A session that it opens in its release drives none itself, or each
  // would end in the opening of another.
  void Unload() {
    initialized = false;
    changes.clear();
    stacks.reset();
    ++State().unloading;
    const InNotifyObject inside;
    notifyObject.Reset();
    --State().unloading;
  }
  void Unlock() {
    if (!std::exchange(hasLock, false)) return;
    if (--State().lockHolders == 0) State().lockHolder.clear();
  }
};
using SharedSession = std::shared_ptr<Session>;

template <class Item, const IID& Id>
class Enumerator final : public Object<Implements<IEnumNetCfg<Item>, Id>> {
 public:
  explicit Enumerator(std::shared_ptr<const std::vector<ComPtr<Item>>> items, std::size_t at = 0)
      : items_(std::move(items)), at_(at) {}

  HRESULT Next(ULONG count, Item** items, ULONG* fetched) override {
    const Call call(Operation::Next, {.number = count});
    ULONG given = 0;
    if (!call.code_)
      for (; given < count && at_ < items_->size(); ++at_) {
        (*items_)[at_]->AddRef();
        items[given++] = (*items_)[at_].Get();
      }
    if (fetched != nullptr) *fetched = given;
    return call.Answer(call.code_.value_or(given == count ? S_OK : S_FALSE));
  }
  HRESULT Skip(ULONG count) override {
    const std::size_t left = items_->size() - at_;
    at_ += std::min<std::size_t>(count, left);
    return count <= left ? S_OK : S_FALSE;
  }
  HRESULT Reset() override {
    const Call call(Operation::Reset);
    if (!call.Fails()) at_ = 0;
    return call.Result();
  }
  HRESULT Clone(IEnumNetCfg<Item>** copy) override {
    *copy = new Enumerator(items_, at_);
    return S_OK;
  }

 private:
  std::shared_ptr<const std::vector<ComPtr<Item>>> items_;
  std::size_t at_;
};

template <const IID& Id, class Item>
HRESULT Enumerate(std::vector<ComPtr<Item>> items, IEnumNetCfg<Item>** enumerator) {
  *enumerator = new Enumerator<Item, Id>(std::make_shared<const std::vector<ComPtr<Item>>>(std::move(items)));
  return S_OK;
}

class BindingPath final : public Object<Implements<INetCfgBindingPath, IID_INetCfgBindingPath>> {
 public:
  BindingPath(SharedSession session, FilterDriver filter, std::u16string bottom, std::u16string token)
      : session_(std::move(session)),
        filter_(std::move(filter)),
        bottom_(std::move(bottom)),
        token_(std::move(token)) {}

  HRESULT IsEnabled() override {
    const Call call(Operation::IsEnabled, {.name = token_.c_str()});
    if (call.code_) return call.Answer(*call.code_);
    if (const HRESULT hr = session_->CheckAnswerable(); Failed(hr)) return call.Answer(hr);
    return call.Answer(session_->IsEnabled(filter_, bottom_) ? S_OK : S_FALSE);
  }
  HRESULT Enable(BOOL enable) override {
    const Call call(Operation::Enable, {.name = token_.c_str(), .number = enable});
    if (call.Fails()) return call.Result();
    if (const HRESULT hr = session_->CheckChangeable(); Failed(hr)) return call.Answer(hr);
    std::erase_if(session_->changes, [this](const PathChange& change) {
      return change.filter.componentId == filter_.componentId && change.bottom == bottom_;
    });
    session_->changes.push_back({filter_, bottom_, token_, enable != 0});
    return call.Result();
  }
  HRESULT GetPathToken(char16_t** token) override {
    *token = nullptr;
    const Call call(Operation::GetPathToken, {.name = token_.c_str()});
    if (call.Result() != S_OK) return call.Result();  // a token comes with S_OK alone
    return call.Answer(session_->initialized ? call.Result(CopyToTask(token_, token)) : NETCFG_E_NOT_INITIALIZED);
  }

  // Nobody calls these.
  HRESULT IsSamePathAs(INetCfgBindingPath*) override { return E_NOTIMPL; }
  HRESULT IsSubPathOf(INetCfgBindingPath*) override { return E_NOTIMPL; }
  HRESULT GetOwner(INetCfgComponent**) override { return E_NOTIMPL; }
  HRESULT GetDepth(ULONG*) override { return E_NOTIMPL; }
  HRESULT EnumBindingInterfaces(IEnumNetCfgBindingInterface**) override { return E_NOTIMPL; }

 private:
  const SharedSession session_;
  const FilterDriver filter_;
  const std::u16string bottom_;
  const std::u16string token_;
};

class Component final : public Object<Implements<INetCfgComponent, IID_INetCfgComponent>,
                                      Implements<INetCfgComponentBindings, IID_INetCfgComponentBindings>> {
 public:
  Component(SharedSession session, const ComponentClass& componentClass, std::u16string instanceKey)
      : session_(std::move(session)), class_(componentClass), instanceKey_(std::move(instanceKey)) {}

  HRESULT GetDisplayName(char16_t** name) override {
    return Text(class_.isDevice ? u"DriverDesc" : u"Description", name);
  }
  HRESULT GetHelpText(char16_t** text) override { return CopyToTask({}, text); }
  HRESULT GetId(char16_t** id) override { return Text(u"ComponentId", id); }
  HRESULT GetCharacteristics(DWORD* characteristics) override {
    UniqueKey key;
    if (const LSTATUS rc = key.Open(HKEY_LOCAL_MACHINE, instanceKey_.c_str(), KEY_READ); rc != ERROR_SUCCESS)
      return HresultFromError(rc);
    DWORD bytes = sizeof(*characteristics);
    return HresultFromError(RegQueryValueExW(key.Get(), u"Characteristics", nullptr, nullptr,
                                             reinterpret_cast<BYTE*>(characteristics), &bytes));
  }
  HRESULT GetPnpDevNodeId(char16_t** devNodeId) override {
    *devNodeId = nullptr;
    const Call call(Operation::GetPnpDevNodeId, {.name = instanceKey_.c_str()});
    if (call.Fails()) return call.Result();
    return call.Result(class_.isDevice ? Text(u"DeviceInstanceID", devNodeId) : E_NOTIMPL);
  }
  HRESULT GetClassGuid(GUID* guid) override {
    *guid = class_.guid;
    return S_OK;
  }
  // An adapter's parameters are in its instance key, those of any other component in the subkey "Parameters", which
  // is made when it is missing.
  HRESULT OpenParamKey(HKEY* key) override {
    *key = nullptr;
    const Call call(Operation::OpenParamKey, {.name = instanceKey_.c_str()});
    if (call.code_) return call.Answer(*call.code_);
    if (!session_->initialized) return call.Answer(NETCFG_E_NOT_INITIALIZED);
    UniqueKey instance;
    LSTATUS rc = RegOpenKeyExW(HKEY_LOCAL_MACHINE, instanceKey_.c_str(), 0, KEY_ALL_ACCESS,
                               class_.isDevice ? key : instance.Receive());
    if (rc == ERROR_SUCCESS && !class_.isDevice)
      rc = RegCreateKeyExW(instance.Get(), u"Parameters", 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                           key, nullptr);
    return call.Answer(HresultFromError(rc));
  }

  // A filter is bound to the bottoms of the stacks that it is in.
  HRESULT IsBoundTo(INetCfgComponent* lower) override {
    if (lower == nullptr) return E_POINTER;
    const auto* const adapter = static_cast<Component*>(lower);
    const Call call(Operation::IsBoundTo, {.name = adapter->instanceKey_.c_str()});
    if (call.code_) return call.Answer(*call.code_);
    if (const HRESULT hr = session_->CheckAnswerable(); Failed(hr)) return call.Answer(hr);
    const FilterDriver* const filter = Filter();
    if (!adapter->class_.isDevice || filter == nullptr) return call.Answer(S_FALSE);
    const AdapterInstance* const bottom = session_->stacks->BottomAt(*filter, adapter->Subkey());
    return call.Answer(bottom != nullptr && session_->IsEnabled(*filter, bottom->name) ? S_OK : S_FALSE);
  }
  HRESULT EnumBindingPaths(DWORD flags, IEnumNetCfgBindingPath** paths) override {
    *paths = nullptr;
    const Call call(Operation::EnumBindingPaths, {.number = flags});
    if (call.Fails()) return call.Result();
    if (const HRESULT hr = session_->CheckAnswerable(); Failed(hr)) return call.Answer(hr);
    if (flags != EBP_BELOW) return call.Answer(E_NOTIMPL);
    std::vector<ComPtr<INetCfgBindingPath>> list;
    if (const FilterDriver* const filter = Filter())
      for (const AdapterInstance* const bottom : session_->stacks->Bottoms(*filter))
        list.push_back(ComPtr<INetCfgBindingPath>::Attach(
            new BindingPath(session_, *filter, bottom->name, filter->componentId + u"->" + bottom->devNodeId)));
    return call.Result(Enumerate<IID_IEnumNetCfgBindingPath>(std::move(list), paths));
  }

  // Nobody calls these.
  HRESULT SetDisplayName(const char16_t*) override { return E_NOTIMPL; }
  HRESULT GetInstanceGuid(GUID*) override { return E_NOTIMPL; }
  HRESULT GetBindName(char16_t**) override { return E_NOTIMPL; }
  HRESULT GetDeviceStatus(ULONG*) override { return E_NOTIMPL; }
  HRESULT RaisePropertyUi(HWND, DWORD, IUnknown*) override { return E_NOTIMPL; }
  HRESULT BindTo(INetCfgComponent*) override { return E_NOTIMPL; }
  HRESULT UnbindFrom(INetCfgComponent*) override { return E_NOTIMPL; }
  HRESULT SupportsBindingInterface(DWORD, const char16_t*) override { return E_NOTIMPL; }
  HRESULT IsBindableTo(INetCfgComponent*) override { return E_NOTIMPL; }
  HRESULT MoveBefore(INetCfgBindingPath*, INetCfgBindingPath*) override { return E_NOTIMPL; }
  HRESULT MoveAfter(INetCfgBindingPath*, INetCfgBindingPath*) override { return E_NOTIMPL; }

 private:
  HRESULT Text(const char16_t* name, char16_t** text) const {
    *text = nullptr;
    if (!session_->initialized) return NETCFG_E_NOT_INITIALIZED;
    UniqueKey key;
    if (const LSTATUS rc = key.Open(HKEY_LOCAL_MACHINE, instanceKey_.c_str(), KEY_READ); rc != ERROR_SUCCESS)
      return HresultFromError(rc);
    std::u16string value;
    return ReadString(key.Get(), name, value) ? CopyToTask(value, text) : HresultFromError(ERROR_FILE_NOT_FOUND);
  }
  std::u16string_view Subkey() const { return std::u16string_view(instanceKey_).substr(instanceKey_.rfind(u'\\') + 1); }
  // Null for a component that has no virtual adapters.
  const FilterDriver* Filter() const {
    if (class_.guid != GUID_DEVCLASS_NETSERVICE) return nullptr;
    const FilterDriver* const filter = session_->stacks->FilterAt(Subkey());
    return filter != nullptr && session_->stacks->IsFilter(*filter) ? filter : nullptr;
  }

  const SharedSession session_;
  const ComponentClass& class_;
  const std::u16string instanceKey_;  // below HKEY_LOCAL_MACHINE
};

// The components of a class; of those with an id when one is given. An adapter may lack one.
std::vector<ComPtr<INetCfgComponent>> Components(const SharedSession& session, const ComponentClass& componentClass,
                                                 const char16_t* infId) {
  std::vector<ComPtr<INetCfgComponent>> components;
  UniqueKey classKey;
  if (classKey.Open(HKEY_LOCAL_MACHINE, componentClass.key, KEY_READ) != ERROR_SUCCESS) return components;
  for (SubkeyEnumeration<256> instance(classKey.Get()); instance.Next();) {
    UniqueKey key;
    std::u16string id;
    if (key.Open(classKey.Get(), instance.Name(), KEY_READ) == ERROR_SUCCESS &&
        (ReadString(key.Get(), u"ComponentId", id)
             ? infId == nullptr || EqualNoCase(infId, id)
             : infId == nullptr && componentClass.isDevice && ReadString(key.Get(), u"NetCfgInstanceId", id)))
      components.push_back(ComPtr<INetCfgComponent>::Attach(
          new Component(session, componentClass, std::u16string(componentClass.key) + u"\\" + instance.Name())));
  }
  return components;
}

const ComponentClass* FindClass(const GUID& guid) {
  for (const ComponentClass& componentClass : kClasses)
    if (componentClass.guid == guid) return &componentClass;
  return nullptr;
}

// Of one class, or of all. `component` may be null.
HRESULT FindComponentIn(const SharedSession& session, const ComponentClass* only, const char16_t* infId,
                        INetCfgComponent** component) {
  if (component != nullptr) *component = nullptr;
  const Call call(Operation::FindComponent, {.name = infId});
  if (call.code_) return call.Answer(*call.code_);
  if (!session->initialized) return call.Answer(NETCFG_E_NOT_INITIALIZED);
  if (infId == nullptr) return call.Answer(E_INVALIDARG);
  for (const ComponentClass& componentClass : kClasses) {
    if (only != nullptr && only != &componentClass) continue;
    const auto found = Components(session, componentClass, infId);
    if (found.empty()) continue;
    if (component != nullptr) {
      *component = found.front().Get();
      (*component)->AddRef();
    }
    return call.Answer(S_OK);
  }
  return call.Answer(S_FALSE);
}

HRESULT EnumComponentsIn(const SharedSession& session, const ComponentClass* componentClass,
                         IEnumNetCfgComponent** components) {
  *components = nullptr;
  const Call call(Operation::EnumComponents);
  if (call.Fails()) return call.Result();
  if (!session->initialized) return call.Answer(NETCFG_E_NOT_INITIALIZED);
  if (componentClass == nullptr) return call.Answer(E_INVALIDARG);
  return call.Result(Enumerate<IID_IEnumNetCfgComponent>(Components(session, *componentClass, nullptr), components));
}

class Class final
    : public Object<Implements<INetCfgClass, IID_INetCfgClass>, Implements<INetCfgClassSetup, IID_INetCfgClassSetup>> {
 public:
  Class(SharedSession session, const ComponentClass& componentClass)
      : session_(std::move(session)), class_(componentClass) {}

  HRESULT FindComponent(const char16_t* infId, INetCfgComponent** component) override {
    return FindComponentIn(session_, &class_, infId, component);
  }
  HRESULT EnumComponents(IEnumNetCfgComponent** components) override {
    return EnumComponentsIn(session_, &class_, components);
  }

  // Installs once more what the registry has; there is nothing here to install anything else from.
  HRESULT Install(const char16_t* infId, OBO_TOKEN* token, DWORD setupFlags, DWORD, const char16_t*, const char16_t*,
                  INetCfgComponent** component) override {
    if (component != nullptr) *component = nullptr;
    const Call call(Operation::Install,
                    {.name = infId, .number = setupFlags, .flags = token != nullptr ? token->Type : 0});
    if (call.Fails()) return call.Result();
    if (const HRESULT hr = session_->CheckChangeable(); Failed(hr)) return call.Answer(hr);
    if (infId == nullptr) return call.Answer(E_INVALIDARG);
    const auto found = Components(session_, class_, infId);
    if (found.empty()) return call.Answer(HresultFromError(ERROR_FILE_NOT_FOUND));
    ComPtr<INetCfgComponentSetup> setup;
    if (session_->notifyObject && EqualNoCase(infId, kNotifyingComponent) &&
        session_->notifyObject->QueryInterface(IID_INetCfgComponentSetup, reinterpret_cast<void**>(setup.Receive())) ==
            S_OK) {
      const InNotifyObject inside;
      setup->Install(setupFlags);
    }
    if (component != nullptr) {
      *component = found.front().Get();
      (*component)->AddRef();
    }
    return call.Result();
  }

  // Nobody calls these.
  HRESULT SelectAndInstall(HWND, OBO_TOKEN*, INetCfgComponent**) override { return E_NOTIMPL; }
  HRESULT DeInstall(INetCfgComponent*, OBO_TOKEN*, char16_t**) override { return E_NOTIMPL; }

 private:
  const SharedSession session_;
  const ComponentClass& class_;
};

class Callback final : public Object<Implements<INetCfgPnpReconfigCallback, IID_INetCfgPnpReconfigCallback>> {
 public:
  HRESULT SendPnpReconfig(NCRP_LAYER layer, const char16_t* upper, const char16_t* lower, void* data,
                          DWORD dataBytes) override {
    const Call call(Operation::SendPnpReconfig, {.name = lower, .number = layer, .data = data, .dataBytes = dataBytes});
    if (call.Fails()) return call.Result();
    const auto* const bytes = static_cast<const BYTE*>(data);
    {
      const std::lock_guard lock(engine_host::Mutex());
      State().pnpReconfigs.push_back({layer, upper, lower, {bytes, bytes + dataBytes}});
    }
    return call.Result();
  }
};

class LanConnection final : public Object<Implements<INetLanConnectionUiInfo, IID_INetLanConnectionUiInfo>> {
 public:
  explicit LanConnection(const GUID& adapter) : adapter_(adapter) {}
  HRESULT GetDeviceGuid(GUID* guid) override {
    const Call call(Operation::GetDeviceGuid);
    if (!call.Fails()) *guid = adapter_;
    return call.Result();
  }

 private:
  const GUID adapter_;
};

// The engine object of a client, which opens and closes the session, or the one that its notify object gets, which
// doesn't.
class NetCfg final : public Object<Implements<INetCfg, IID_INetCfg>, Implements<INetCfgLock, IID_INetCfgLock>> {
 public:
  NetCfg() : session_(std::make_shared<Session>()), isClient_(true) {}
  explicit NetCfg(SharedSession session) : session_(std::move(session)), isClient_(false) {}
  ~NetCfg() override {
    if (!isClient_) return;
    session_->Unload();
    session_->Unlock();
  }

  // INetCfgLock
  HRESULT AcquireWriteLock(DWORD timeout, const char16_t* description, char16_t** holder) override {
    if (holder != nullptr) *holder = nullptr;
    const Call call(Operation::AcquireWriteLock, {.name = description, .number = timeout});
    if (call.Fails()) return call.Result();
    if (session_->initialized) return call.Answer(NETCFG_E_ALREADY_INITIALIZED);
    if (session_->hasLock || !isClient_) return call.Answer(NETCFG_E_IN_USE);
    Engine& engine = State();
    if (!engine.otherClient.empty()) {
      const std::int64_t waited = std::min<std::int64_t>(engine.otherClientMilliseconds, timeout);
      engine_host::Wait(waited);
      if (waited < engine.otherClientMilliseconds || call.code_ == S_FALSE) {
        if (engine.otherClientMilliseconds != INT64_MAX) engine.otherClientMilliseconds -= waited;
        return call.Answer(Refuse(engine.otherClient, holder));
      }
      engine.otherClient.clear();
    }
    if (engine.lockHolders > 0 && !engine.grantSecondLock) {
      engine_host::Wait(timeout);
      return call.Answer(Refuse(engine.lockHolder, holder));
    }
    if (call.code_ == S_FALSE) return call.Answer(S_FALSE);
    if (engine.lockHolders++ == 0) engine.lockHolder = description != nullptr ? description : u"";
    session_->hasLock = true;
    return call.Result();
  }
  HRESULT ReleaseWriteLock() override {
    const Call call(Operation::ReleaseWriteLock);
    if (call.Fails()) return call.Result();
    if (session_->initialized) return call.Answer(NETCFG_E_ALREADY_INITIALIZED);
    if (!session_->hasLock) return call.Answer(NETCFG_E_NO_WRITE_LOCK);
    session_->Unlock();
    return call.Result();
  }
  HRESULT IsWriteLocked(char16_t** holder) override {
    const Engine& engine = State();
    const std::u16string& held = engine.lockHolders > 0 ? engine.lockHolder : engine.otherClient;
    if (holder != nullptr) *holder = nullptr;
    if (held.empty()) return S_FALSE;
    return holder == nullptr ? S_OK : CopyToTask(held, holder);
  }

  // INetCfg
  HRESULT Initialize(void*) override {
    const Call call(Operation::Initialize);
    if (call.Fails()) return call.Result();
    if (session_->initialized) return call.Answer(NETCFG_E_ALREADY_INITIALIZED);
    if (!isClient_) return call.Answer(NETCFG_E_IN_USE);
    if (const HRESULT hr = session_->ReadStacks(); Failed(hr)) return call.Answer(hr);
    session_->initialized = true;
    if (State().unloading == 0) LoadNotifyObject();
    return call.Result();
  }
  HRESULT Uninitialize() override {
    const Call call(Operation::Uninitialize);
    if (call.Fails()) return call.Result();
    if (!session_->initialized) return call.Answer(NETCFG_E_NOT_INITIALIZED);
    if (!isClient_) return call.Answer(NETCFG_E_IN_USE);
    session_->Unload();
    return call.Result();
  }
  // Asks the notify object before a path changes and notifies it after that, and lets it apply what is its own. The
  // stacks are read for each change: no old list is written over what another session, or an object's pass, has
  // written.
  HRESULT Apply() override {
    const Call call(Operation::Apply);
    if (call.Fails()) return call.Result();
    if (const HRESULT hr = session_->CheckChangeable(); Failed(hr)) return call.Answer(hr);
    for (std::vector<PathChange>& changes = session_->changes; !changes.empty(); changes.erase(changes.begin())) {
      const PathChange change = changes.front();
      StackLinkage stacks = StackLinkage::Read();
      if (stacks.Error() != ERROR_SUCCESS) return call.Answer(HresultFromError(stacks.Error()));
      const bool isDone = stacks.StandsIn(change.filter, change.bottom) == change.enable;
      if (!isDone) {
        Tell(change, &INetCfgComponentNotifyBinding::QueryBindingPath,
             &INetCfgComponentNotifyGlobal::SysQueryBindingPath);
        const LSTATUS rc = change.enable ? stacks.PutOnTop(change.filter, change.bottom, State().lastStacks)
                                         : stacks.TakeOut(change.filter, change.bottom, State().lastStacks);
        if (rc != ERROR_SUCCESS) return call.Answer(HresultFromError(rc));
      }
      session_->stacks = std::move(stacks);
      if (!isDone)
        Tell(change, &INetCfgComponentNotifyBinding::NotifyBindingPath,
             &INetCfgComponentNotifyGlobal::SysNotifyBindingPath);
    }
    return call.Result(ApplyNotifyObject());
  }
  HRESULT Cancel() override {
    if (const HRESULT hr = session_->CheckChangeable(); Failed(hr)) return hr;
    session_->changes.clear();
    const InNotifyObject inside;
    if (session_->notifyObject) session_->notifyObject->CancelChanges();
    return S_OK;
  }
  HRESULT EnumComponents(const GUID* deviceClass, IEnumNetCfgComponent** components) override {
    return EnumComponentsIn(session_, FindClass(*deviceClass), components);
  }
  HRESULT FindComponent(const char16_t* infId, INetCfgComponent** component) override {
    return FindComponentIn(session_, nullptr, infId, component);
  }
  HRESULT QueryNetCfgClass(const GUID* deviceClass, REFIID riid, void** object) override {
    *object = nullptr;
    const Call call(Operation::QueryNetCfgClass, {.data = deviceClass, .dataBytes = sizeof(*deviceClass)});
    if (call.Fails()) return call.Result();
    if (!session_->initialized) return call.Answer(NETCFG_E_NOT_INITIALIZED);
    const ComponentClass* const found = FindClass(*deviceClass);
    if (found == nullptr) return call.Answer(E_INVALIDARG);
    const auto made = ComPtr<INetCfgClass>::Attach(new Class(session_, *found));
    return call.Result(made->QueryInterface(riid, object));
  }

 private:
  static HRESULT Refuse(const std::u16string& holderNow, char16_t** holder) {
    if (holder != nullptr) CopyToTask(holderNow, holder);
    return S_FALSE;
  }
  void LoadNotifyObject() {
    std::vector<ComPtr<INetCfgComponent>> found;
    for (const ComponentClass& componentClass : kClasses)
      if (found.empty()) found = Components(session_, componentClass, kNotifyingComponent);
    const InNotifyObject inside;
    ComPtr<INetCfgComponentControl> loaded;
    if (found.empty() ||
        Failed(CoCreateInstance(kNotifyClass, nullptr, CLSCTX_INPROC_SERVER, IID_INetCfgComponentControl,
                                reinterpret_cast<void**>(loaded.Receive()))))
      return;
    const auto own = ComPtr<INetCfg>::Attach(new NetCfg(session_));
    if (Failed(loaded->Initialize(found.front().Get(), own.Get(), 0))) return;
    session_->notifyObject = std::move(loaded);
    session_->wantedNotices = 0;
    if (const auto global = QueryNotifyObject<INetCfgComponentNotifyGlobal>(IID_INetCfgComponentNotifyGlobal))
      global->GetSupportedNotifications(&session_->wantedNotices);
  }
  // An interface of the notify object; null when there is no object or it lacks that.
  template <class Interface>
  ComPtr<Interface> QueryNotifyObject(REFIID riid) const {
    ComPtr<Interface> result;
    if (session_->notifyObject &&
        session_->notifyObject->QueryInterface(riid, reinterpret_cast<void**>(result.Receive())) != S_OK)
      result.Reset();
    return result;
  }
  // Calls `own` for a path of the notifying component, `global` for another's when the object wants such notices. The
  // answers change nothing.
  void Tell(const PathChange& change, HRESULT (INetCfgComponentNotifyBinding::*own)(DWORD, INetCfgBindingPath*),
            HRESULT (INetCfgComponentNotifyGlobal::*global)(DWORD, INetCfgBindingPath*)) {
    const DWORD flag = NCN_BINDING_PATH | (change.enable ? NCN_ENABLE : NCN_DISABLE);
    const auto path =
        ComPtr<INetCfgBindingPath>::Attach(new BindingPath(session_, change.filter, change.bottom, change.token));
    const InNotifyObject inside;
    if (EqualNoCase(kNotifyingComponent, change.filter.componentId)) {
      const auto object = QueryNotifyObject<INetCfgComponentNotifyBinding>(IID_INetCfgComponentNotifyBinding);
      if (object) (object.Get()->*own)(flag, path.Get());
    } else if ((flag & session_->wantedNotices) == flag) {
      const auto object = QueryNotifyObject<INetCfgComponentNotifyGlobal>(IID_INetCfgComponentNotifyGlobal);
      if (object) (object.Get()->*global)(flag, path.Get());
    }
  }
  HRESULT ApplyNotifyObject() {
    if (!session_->notifyObject) return S_OK;
    const InNotifyObject inside;
    const auto callback = ComPtr<INetCfgPnpReconfigCallback>::Attach(new Callback);
    session_->notifyObject->ApplyRegistryChanges();
    return session_->notifyObject->ApplyPnpChanges(callback.Get()) == NETCFG_S_REBOOT ? NETCFG_S_REBOOT : S_OK;
  }

  const SharedSession session_;
  const bool isClient_;
};

}  // namespace

INetCfg* CreateNetCfg() { return new NetCfg; }

INetCfg* CreateTransaction() {
  auto session = std::make_shared<Session>();
  session->initialized = true;
  return new NetCfg(std::move(session));
}

INetCfgPnpReconfigCallback* CreatePnpReconfigCallback() { return new Callback; }

INetLanConnectionUiInfo* CreateLanConnection(const GUID& adapter) { return new LanConnection(adapter); }

}  // namespace simulation
