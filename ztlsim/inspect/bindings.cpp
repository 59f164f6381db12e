#include "ztlsim/inspect/bindings.h"

#include <algorithm>
#include <map>

#include "module/names.h"
#include "module/netcfg/binding_path.h"
#include "module/repair/check_bind_loop.h"
#include "module/repair/excluded_macs.h"
#include "platform/com_ptr.h"
#include "platform/registry_key.h"
#include "simulation/netcfg_engine/engine.h"
#include "simulation/upper_case.h"
#include "ztlsim/inspect/adapter_instances.h"
#include "ztlsim/inspection.h"

namespace ztlsim {

using namespace platform;

namespace {

// The instances with a device node id, by subkey and description.
struct Adapter {
  std::u16string devNodeId;
  std::u16string name;
};

std::vector<Adapter> AdaptersOf(const std::vector<AdapterInstance>& instances) {
  std::vector<Adapter> adapters;
  for (const AdapterInstance& instance : instances)
    if (!instance.devNodeId.empty())
      adapters.push_back({instance.devNodeId, instance.description.empty()
                                                  ? instance.subkey
                                                  : instance.subkey + u' ' + instance.description});
  return adapters;
}

std::vector<BindingPath> ReadPaths(const std::vector<Adapter>& adapters) {
  std::map<std::u16string, std::u16string> names;  // by upper-cased device node id
  for (const Adapter& adapter : adapters) names.try_emplace(simulation::UpperCase(adapter.devNodeId), adapter.name);
  std::vector<BindingPath> result;
  const auto netCfg = ComPtr<INetCfg>::Attach(simulation::CreateTransaction());
  ComPtr<INetCfgComponent> component;
  ComPtr<INetCfgComponentBindings> bindings;
  ComPtr<IEnumNetCfgBindingPath> paths;
  if (netCfg->FindComponent(ztl::kFilterComponent, component.Receive()) != S_OK ||
      Failed(component->QueryInterface(IID_INetCfgComponentBindings, reinterpret_cast<void**>(bindings.Receive()))) ||
      Failed(bindings->EnumBindingPaths(EBP_BELOW, paths.Receive())))
    return result;
  for (ComPtr<INetCfgBindingPath> path; paths->Next(1, path.Receive(), nullptr) == S_OK;) {
    char16_t* token = nullptr;
    if (Failed(path->GetPathToken(&token))) continue;
    BindingPath& read = result.emplace_back(BindingPath{token, {}, path->IsEnabled() == S_OK});
    CoTaskMemFree(token);
    const auto name = names.find(simulation::UpperCase(read.token.substr(read.token.find(u"->") + 2)));
    if (name != names.end()) read.adapter = name->second;
  }
  return result;
}

std::vector<ExcludedEntry> ReadExcluded(const std::vector<Adapter>& adapters) {
  std::vector<ExcludedEntry> result;
  UniqueKey parameters;
  ztl::ExcludedMacs list;
  if (parameters.Open(HKEY_LOCAL_MACHINE, ztl::kParametersKey, KEY_READ) != ERROR_SUCCESS ||
      !ztl::ReadExcludedMacs(parameters.Get(), list))
    return result;
  for (const std::u16string_view text : list.List()) {
    ExcludedEntry& excluded = result.emplace_back(ExcludedEntry{std::u16string(text), {}});
    const MultiStringView only(excluded.entry.c_str(), excluded.entry.size());
    for (const Adapter& adapter : adapters)
      if (ztl::IsExcluded(only, adapter.devNodeId)) excluded.adapters.push_back(adapter.name);
  }
  return result;
}

bool IsRepairable(const ztl::BindLoop& loop) {
  UniqueKey links;
  ztl::LongString device;
  if (links.Open(HKEY_LOCAL_MACHINE, ztl::kLanInterfacesKey, KEY_READ) != ERROR_SUCCESS ||
      !ztl::FindLinkedDevice(links.Get(), loop.referenceName, device))
    return false;
  const auto netCfg = ComPtr<INetCfg>::Attach(simulation::CreateTransaction());
  const std::u16string token = loop.filterInfId.Text() + (ztl::kTokenArrow + std::u16string(device.Text()));
  return static_cast<bool>(ztl::FindBindingPath(netCfg.Get(), loop.filterInfId.Text(), token.c_str()));
}

std::vector<BindLoopInstance> ReadLoops(HKEY classKey, const std::vector<AdapterInstance>& instances) {
  std::vector<BindLoopInstance> result;
  for (ztl::InstanceEnumeration instance(classKey, ztl::kInstanceLinkage); instance.Next();) {
    ztl::BindLoop loop;
    const std::u16string subkey = instance.Name();
    if (!ztl::ReadBindLoop(classKey, instance, loop)) continue;
    const auto found = std::find_if(instances.begin(), instances.end(),
                                    [&subkey](const AdapterInstance& each) { return each.subkey == subkey; });
    result.push_back({subkey, found == instances.end() ? std::u16string() : found->description, loop.upperBind.text,
                      IsRepairable(loop)});
  }
  return result;
}

}  // namespace

BindingState ReadBindings(simulation::Machine& machine) {
  const Inspection inspection(machine);
  UniqueKey classKey;
  const bool hasClass = classKey.Open(HKEY_LOCAL_MACHINE, ztl::kNetAdapterClassKey, KEY_READ) == ERROR_SUCCESS;
  const auto instances = hasClass ? ReadAdapterInstances(classKey.Get()) : std::vector<AdapterInstance>();
  const std::vector<Adapter> adapters = AdaptersOf(instances);
  return {ReadPaths(adapters), ReadExcluded(adapters),
          hasClass ? ReadLoops(classKey.Get(), instances) : std::vector<BindLoopInstance>()};
}

}  // namespace ztlsim
