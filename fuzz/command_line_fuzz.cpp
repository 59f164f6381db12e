// Any bytes are the texts of a call's options, between NULs. What is read of one survives being written and read again.
#include "fuzz/fuzz.h"
#include "module/log/format.h"
#include "ztlsim/scenario/arguments.h"
#include "ztlsim/text_encoding.h"

using namespace ztlsim;

namespace {

std::string Text(const platform::GUID& guid) {
  char text[40];
  const platform::BYTE* const d = guid.Data4;
  ztl::Format(text, "{%08X-%04x-%04X-%02x%02X-%02x%02x%02x%02x%02x%02x}", guid.Data1, guid.Data2, guid.Data3, d[0],
              d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
  return text;
}

void Read(const CallOption& option, const std::string& text) {
  CallOptions calls, again;
  const auto expected = option.read(text, calls);
  if (expected) return ZTL_HOLDS(!expected->empty());
  const auto readAgain = [&](const std::string& written) { ZTL_HOLDS(!option.read(written, again)); };
  if (!calls.paths.empty()) {
    const PathNotice& path = calls.paths[0];
    const char* const state = path.enabled == platform::S_OK      ? "on"
                              : path.enabled == platform::S_FALSE ? "off"
                                                                  : "error";
    ZTL_HOLDS(text.ends_with(std::string("=") + state));
    readAgain(Utf16ToUtf8(path.token) + "=" + state);
    ZTL_HOLDS(again.paths[0].token == path.token && again.paths[0].enabled == path.enabled);
  }
  if (calls.changeFlag) {
    char hexadecimal[16];
    ztl::Format(hexadecimal, "0x%X", *calls.changeFlag);
    for (const std::string& written : {std::string(hexadecimal), std::to_string(*calls.changeFlag)}) {
      readAgain(written);
      ZTL_HOLDS(again.changeFlag == calls.changeFlag);
    }
  }
  if (calls.adapter) {
    readAgain(Text(*calls.adapter));
    ZTL_HOLDS(again.adapter && Text(*again.adapter) == Text(*calls.adapter));
  }
}

}  // namespace

void ztl_fuzz::Check(std::string_view bytes) {
  for (int texts = 0; texts < 8 && !bytes.empty(); ++texts) {
    const std::string text(bytes.substr(0, bytes.find('\0')));
    bytes.remove_prefix(std::min(text.size() + 1, bytes.size()));
    for (const CallOption& option : kNotifyOptions) Read(option, text);
    for (const CallOption& option : kPropertiesOptions) Read(option, text);
  }
}
