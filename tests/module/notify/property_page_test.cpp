#include "module/notify/property_page.h"

#include <memory>
#include <span>

#include "module/notify/module.h"
#include "module/notify/notify_object.h"
#include "simulation/property_sheet.h"
#include "tests/support/machine_fixture.h"

namespace {

using namespace platform;
using namespace ztl_test;
using simulation::PropertySheet;

constexpr GUID kAdapter{0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};
const std::u16string kComponent = std::u16string(kNetwork) + u"\\{4D36E974-E325-11CE-BFC1-08002BE10318}\\{1}";
const std::u16string kComponentKey = kComponent + u"\\Parameters";
const std::u16string kAdapterKey = std::u16string(kParameters) + u"\\Adapters\\{12345678-9ABC-DEF0-0102-030405060708}";
const std::u16string kLongest(259, u'x');

// A notify object whose transaction is under way on the current machine, and which is asked for its page.
struct NotifyObject {
  NotifyObject() {
    const auto netCfg = ComPtr<INetCfg>::Attach(simulation::CreateTransaction());
    ComPtr<INetCfgComponent> component;
    netCfg->FindComponent(u"qro_ztl", component.Receive());
    if (Failed(ztl::HrCreateSampleFilter(nullptr, IID_INetCfgComponentControl,
                                         reinterpret_cast<void**>(control.Receive()))))
      return;
    control->QueryInterface(IID_INetCfgComponentPropertyUi, reinterpret_cast<void**>(page.Receive()));
    control->QueryInterface(IID_INetCfgComponentSetup, reinterpret_cast<void**>(setup.Receive()));
    control->Initialize(component.Get(), netCfg.Get(), 0);
    page->SetContext(ComPtr<IUnknown>::Attach(simulation::CreateLanConnection(kAdapter)).Get());
  }

  // What the engine does with the pages that it gets.
  std::unique_ptr<PropertySheet> MakeSheet() const {
    DWORD defaultPages = 1;
    UINT pages = 7;
    BYTE* handles = nullptr;
    EXPECT_EQ(page->MergePropPages(&defaultPages, &handles, &pages, nullptr, nullptr), S_OK);
    EXPECT_EQ(defaultPages, 0u);
    EXPECT_EQ(pages, 1u);
    EXPECT_NE(handles, nullptr);
    auto sheet = std::make_unique<PropertySheet>(std::span(reinterpret_cast<const HPROPSHEETPAGE*>(handles), pages));
    CoTaskMemFree(handles);
    return sheet;
  }

  ComPtr<INetCfgComponentControl> control;
  ComPtr<INetCfgComponentPropertyUi> page;
  ComPtr<INetCfgComponentSetup> setup;
};

class PropertyPageTest : public MachineTest {
 protected:
  void SetUp() override {
    ztl::DllMain(reinterpret_cast<HINSTANCE>(&machine_), DLL_PROCESS_ATTACH, nullptr);
    machine_.registry.Create(kComponent).SetValue(u"ComponentId", REG_SZ, Sz(u"qro_ztl"));
    machine_.registry.Create(kComponentKey);
    machine_.registry.Create(kAdapterKey);
  }
  void TearDown() override {
    ztl::DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    MachineTest::TearDown();
  }
  void Set(const std::u16string& key, std::u16string_view name, std::u16string_view text) {
    machine_.registry.Find(key)->SetValue(name, REG_SZ, Bytes(text));
  }
  std::vector<BYTE> Stored(const std::u16string& key, std::u16string_view name) {
    return machine_.registry.Find(key)->FindValue(name)->data;
  }
  static std::pair<std::u16string, std::u16string> Shown(const PropertySheet& sheet) {
    return {sheet.Text(1851), sheet.Text(1852)};
  }
};

TEST_F(PropertyPageTest, ThePageIsTheResourceWithTheStoredTexts) {
  const std::u16string kept = u"ParamFromAnswerFile";
  const std::u16string text = u"text";
  struct Case {
    const char* name;
    DWORD type;
    std::vector<BYTE> data;
    std::u16string shown;
  };
  std::vector<BYTE> odd = Bytes(text);
  odd.push_back('x');
  const Case cases[] = {
      {"missing", REG_NONE, {}, kept},
      {"empty", REG_SZ, {}, u""},
      {"unterminated", REG_SZ, Bytes(text), text},
      {"ends at its NUL", REG_BINARY, Bytes({u"text\0more", 9}), text},
      {"an odd byte", REG_DWORD, odd, text},
      {"259 characters", REG_SZ, Sz(kLongest), kLongest},
      {"260 characters", REG_EXPAND_SZ, Bytes(kLongest + u'y'), kLongest},
      {"522 bytes", REG_SZ, Bytes(kLongest + u"yz"), kept},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (const auto& [key, name] : {std::pair(kComponentKey, u"Param1"), std::pair(kAdapterKey, u"BundleId")})
      if (c.type != REG_NONE) machine_.registry.Find(key)->SetValue(name, c.type, c.data);
    const NotifyObject object;
    object.setup->ReadAnswerFile(nullptr, nullptr);
    const auto sheet = object.MakeSheet();
    ASSERT_TRUE(sheet->Open());
    EXPECT_EQ(sheet->Title(), u"General");
    const std::vector<simulation::Control> expected = {{u"Static", 0xFFFF, u"Parameter1"},
                                                       {u"Edit", 1851, c.shown, 259},
                                                       {u"Static", 0xFFFF, u"Bundle ID"},
                                                       {u"Edit", 1852, c.shown == kept ? u"" : c.shown, 259}};
    EXPECT_EQ(sheet->Controls(), expected);
    EXPECT_EQ(LogErrors(), Strings{});
  }
}

// Texts reach the object by OK and Apply alone, and the registry by what applies the object's changes after that.
TEST_F(PropertyPageTest, TypedTextsAreTakenByOkAndApplyAndStoredLater) {
  Set(kComponentKey, u"Param1", u"one");
  Set(kAdapterKey, u"BundleId", u"two");
  const NotifyObject object;
  object.page->SetContext(nullptr);  // which keeps the adapter
  TakeLog();
  auto sheet = object.MakeSheet();
  ASSERT_TRUE(sheet->Open());
  for (const int control : {1851, 1852}) {
    SendMessageW(GetParent(sheet->Page()), 0x046D, reinterpret_cast<WPARAM>(sheet->Page()), 0);  // PSM_UNCHANGED
    EXPECT_FALSE(sheet->PressApply());
    EXPECT_EQ(sheet->Type(control, u"!"), 1u);
    EXPECT_TRUE(sheet->ApplyEnabled());
  }
  EXPECT_TRUE(sheet->PressCancel());
  EXPECT_EQ(TakeLog(), (Strings{"--> ::MergePropPages", "--> ::OnCancel"}));

  sheet = object.MakeSheet();
  ASSERT_TRUE(sheet->Open());
  EXPECT_EQ(Shown(*sheet), std::pair(std::u16string(u"one"), std::u16string(u"two")));
  sheet->Type(1851, u"!");
  sheet->Type(1852, kLongest + u"y", true);
  EXPECT_EQ(sheet->Text(1852), kLongest);
  EXPECT_TRUE(sheet->PressApply());
  EXPECT_FALSE(sheet->ApplyEnabled());
  sheet->Type(1852, u"three", true);
  EXPECT_TRUE(sheet->PressCancel());

  Set(kComponentKey, u"Param1", u"not read again");
  sheet = object.MakeSheet();
  ASSERT_TRUE(sheet->Open());
  EXPECT_EQ(Shown(*sheet), std::pair(std::u16string(u"one!"), kLongest));
  sheet->Type(1852, u"three", true);
  EXPECT_TRUE(sheet->PressOk());
  EXPECT_FALSE(sheet->IsOpen());
  EXPECT_EQ(TakeLog().back(), "--> ::OnOk");
  EXPECT_EQ(Stored(kAdapterKey, u"BundleId"), Bytes(u"two"));
  EXPECT_EQ(object.control->ApplyRegistryChanges(), S_OK);
  EXPECT_EQ(Stored(kComponentKey, u"Param1"), Bytes(u"one!"));
  EXPECT_EQ(Stored(kAdapterKey, u"BundleId"), Bytes(u"three"));
  const auto callback = ComPtr<INetCfgPnpReconfigCallback>::Attach(simulation::CreatePnpReconfigCallback());
  object.control->ApplyPnpChanges(callback.Get());
  EXPECT_EQ(machine_.engine.pnpReconfigs.back().data, Sz(u"three"));
  EXPECT_EQ(object.page->SetContext(object.page.Get()), E_NOINTERFACE);  // no connection, so no adapter
  object.page->SetContext(nullptr);
  object.control->ApplyPnpChanges(callback.Get());
  EXPECT_EQ(machine_.engine.pnpReconfigs.back().lower, u"{00000000-0000-0000-0000-000000000000}");

  object.control->CancelChanges();
  sheet = object.MakeSheet();
  ASSERT_TRUE(sheet->Open());
  EXPECT_EQ(Shown(*sheet), std::pair(std::u16string(), std::u16string(u"three")));
}

}  // namespace
