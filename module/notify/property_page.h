// The property page of CSampleFilter: its dialog procedure and what that does.
//
// The page moves text between the registry, the object's fields and its two edit controls. It stores nothing:
// ApplyRegistryChanges and ApplyPnpChanges do that later, because MergePropPages records the action. Everything runs on
// the thread that shows the sheet. The page holds no reference to its object, which outlives it.
#pragma once

#include <cstdint>

#include "platform/dialogs.h"

namespace ztl {

class CSampleFilter;

inline constexpr int kParam1Control = 1851;
inline constexpr int kBundleIdControl = 1852;

// The dialog procedure; the page's lParam is its object. 0 for what it leaves to the system, 1 when the dialog's
// message result is the answer.
std::intptr_t PropPageDlgProc(platform::HWND hDlg, platform::UINT message, platform::WPARAM wParam,
                              platform::LPARAM lParam);

// Fills the page, the first time in an object from the registry: later pages show the fields as they stand. Always 0.
std::intptr_t OnInitDialog(CSampleFilter* object, platform::HWND hDlg);

// Takes both texts back, at most 259 characters of each. Always 0.
std::intptr_t OnOk(CSampleFilter* object, platform::HWND hDlg);

void OnCancel();  // the trace of a reset; the fields stay

}  // namespace ztl
