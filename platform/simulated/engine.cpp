#include "platform/simulated/engine.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/registry_key.h"
#include "platform/simulated/machine.h"

namespace platform::simulated {
namespace {

// Where the components of a device class have their instance keys, and whether a device stands behind them.
struct ComponentClass {
  GUID guid;
  const char16_t* key;
  bool isDevice;
};

const ComponentClass kClasses[] = {
    {GUID_DEVCLASS_NET, u"SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002BE10318}", true},
    {{0x4D36E973, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}},
     u"SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E973-E325-11CE-BFC1-08002BE10318}",
     false},
    {GUID_DEVCLASS_NETSERVICE, u"SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E974-E325-11CE-BFC1-08002BE10318}",
     false},
    {GUID_DEVCLASS_NETTRANS, u"SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E975-E325-11CE-BFC1-08002BE10318}",
     false},
};

// Reference counting and the answers of an object with one interface.
template <class Interface>
class Object : public Interface {
 public:
  explicit Object(REFIID iid) : iid_(iid) { ++Current().engineObjects; }
  virtual ~Object() { --Current().engineObjects; }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  HRESULT QueryInterface(REFIID riid, void** object) override {
    *object = nullptr;
    if (riid != IID_IUnknown && riid != iid_) return E_NOINTERFACE;
    AddRef();
    *object = static_cast<Interface*>(this);
    return S_OK;
  }
  ULONG AddRef() override { return ++references_; }
  ULONG Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

 private:
  const IID iid_;
  std::atomic<ULONG> references_{1};
};

bool ReadString(HKEY key, const char16_t* name, std::u16string& text) {
  DWORD type = REG_NONE;
  DWORD bytes = 0;
  if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &bytes) != ERROR_SUCCESS || type != REG_SZ) return false;
  text.assign((bytes + 1) / 2, u'\0');
  if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text.data()), &bytes) != ERROR_SUCCESS)
    return false;
  text.resize(std::min(text.size(), text.find(u'\0')));
  return true;
}

HRESULT CopyToTask(const std::u16string& text, char16_t** result) {
  const std::size_t bytes = (text.size() + 1) * sizeof(char16_t);
  *result = static_cast<char16_t*>(CoTaskMemAlloc(bytes));
  if (*result == nullptr) return E_OUTOFMEMORY;
  std::memcpy(*result, text.c_str(), bytes);
  return S_OK;
}

class Component final : public Object<INetCfgComponent> {
 public:
  Component(const ComponentClass& componentClass, std::u16string instanceKey)
      : Object(IID_INetCfgComponent), class_(componentClass), instanceKey_(std::move(instanceKey)) {}

  HRESULT GetDisplayName(char16_t** name) override {
    return Text(class_.isDevice ? u"DriverDesc" : u"Description", name);
  }
  HRESULT SetDisplayName(const char16_t*) override { return E_NOTIMPL; }  // nobody renames a component here
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
  HRESULT GetInstanceGuid(GUID*) override { return E_NOTIMPL; }  // nor asks for these
  HRESULT GetPnpDevNodeId(char16_t** devNodeId) override {
    return class_.isDevice ? Text(u"DeviceInstanceID", devNodeId) : E_NOTIMPL;
  }
  HRESULT GetClassGuid(GUID* guid) override {
    *guid = class_.guid;
    return S_OK;
  }
  HRESULT GetBindName(char16_t**) override { return E_NOTIMPL; }
  HRESULT GetDeviceStatus(ULONG*) override { return E_NOTIMPL; }
  HRESULT RaisePropertyUi(HWND, DWORD, IUnknown*) override { return E_NOTIMPL; }

  // An adapter's parameters stand in its instance key, those of any other component in the subkey "Parameters", which
  // is made when it is missing.
  HRESULT OpenParamKey(HKEY* key) override {
    *key = nullptr;
    if (const auto code = Current().Enter(Operation::OpenParamKey, {.name = instanceKey_.c_str()})) return *code;
    const std::u16string path = class_.isDevice ? instanceKey_ : instanceKey_ + u"\\Parameters";
    return HresultFromError(RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                            KEY_ALL_ACCESS, nullptr, key, nullptr));
  }

 private:
  HRESULT Text(const char16_t* name, char16_t** text) const {
    *text = nullptr;
    UniqueKey key;
    if (const LSTATUS rc = key.Open(HKEY_LOCAL_MACHINE, instanceKey_.c_str(), KEY_READ); rc != ERROR_SUCCESS)
      return HresultFromError(rc);
    std::u16string value;
    return ReadString(key.Get(), name, value) ? CopyToTask(value, text) : HresultFromError(ERROR_FILE_NOT_FOUND);
  }

  const ComponentClass& class_;
  const std::u16string instanceKey_;  // below HKEY_LOCAL_MACHINE
};

// The engine object of a transaction that is under way: the notify object looks components up in it. Sessions of the
// caller's own (Initialize and what follows it) belong to no transaction.
class NetCfg final : public Object<INetCfg> {
 public:
  NetCfg() : Object(IID_INetCfg) {}

  HRESULT FindComponent(const char16_t* infId, INetCfgComponent** component) override {
    if (component != nullptr) *component = nullptr;
    if (const auto code = Current().Enter(Operation::FindComponent, {.name = infId})) return *code;
    for (const ComponentClass& componentClass : kClasses) {
      UniqueKey classKey;
      if (classKey.Open(HKEY_LOCAL_MACHINE, componentClass.key, KEY_READ) != ERROR_SUCCESS) continue;
      for (SubkeyEnumeration<256> instance(classKey.Get()); instance.Next();) {
        UniqueKey key;
        std::u16string id;
        if (key.Open(classKey.Get(), instance.Name(), KEY_READ) != ERROR_SUCCESS ||
            !ReadString(key.Get(), u"ComponentId", id) || !EqualNoCase(id, infId))
          continue;
        if (component != nullptr)
          *component = new Component(componentClass, std::u16string(componentClass.key) + u"\\" + instance.Name());
        return S_OK;
      }
    }
    return S_FALSE;
  }

  HRESULT Initialize(void*) override { return NETCFG_E_ALREADY_INITIALIZED; }
  HRESULT Uninitialize() override { return NETCFG_E_IN_USE; }
  HRESULT Apply() override { return NETCFG_E_NO_WRITE_LOCK; }
  HRESULT Cancel() override { return NETCFG_E_NO_WRITE_LOCK; }
  HRESULT EnumComponents(const GUID*, IEnumNetCfgComponent**) override { return E_NOTIMPL; }
  HRESULT QueryNetCfgClass(const GUID*, REFIID, void**) override { return E_NOTIMPL; }
};

class Callback final : public Object<INetCfgPnpReconfigCallback> {
 public:
  Callback() : Object(IID_INetCfgPnpReconfigCallback) {}

  HRESULT SendPnpReconfig(NCRP_LAYER layer, const char16_t* upper, const char16_t* lower, void* data,
                          DWORD dataBytes) override {
    Machine& machine = Current();
    const auto code = machine.Enter(Operation::SendPnpReconfig,
                                    {.name = lower, .number = layer, .data = data, .dataBytes = dataBytes});
    const auto* const bytes = static_cast<const BYTE*>(data);
    const std::lock_guard lock(machine.mutex);
    machine.pnpReconfigs.push_back({layer, upper, lower, {bytes, bytes + dataBytes}});
    return code.value_or(S_OK);
  }
};

}  // namespace

INetCfg* CreateNetCfg() { return new NetCfg; }

INetCfgPnpReconfigCallback* CreatePnpReconfigCallback() { return new Callback; }

}  // namespace platform::simulated
