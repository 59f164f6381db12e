// Questions and answers in a text file beside a test: what stands after "> ", with the escapes \n, \r, \0, \\ and \xNN,
// is asked, and the lines after it, indented, are the answer. ZTL_UPDATE_EXPECTED writes the answers again.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>

namespace ztl_test {

inline std::string Unescaped(const std::string& row) {
  std::string text;
  for (std::size_t at = 0; at < row.size(); ++at) {
    const char escape = row[at] == '\\' ? row[++at] : ' ';
    text += escape == 'n' ? '\n' : escape == 'r' ? '\r' : escape == '0' ? '\0' : row[at];
    if (escape != 'x') continue;
    text.back() = static_cast<char>(std::stoi(row.substr(at + 1, 2), nullptr, 16));
    at += 2;
  }
  return text;
}

// `file` by its path in the sources.
inline void ExpectTranscript(const std::string& file, const std::function<std::string(const std::string&)>& answer) {
  const std::string path = ZTL_SOURCE_DIR "/" + file;
  std::ifstream stored(path);
  std::string actual, expected;
  int questions = 0;
  for (std::string line; std::getline(stored, line);) {
    expected += line + "\n";
    if (line.starts_with("  ")) continue;
    actual += line + "\n";
    if (!line.starts_with("> ")) continue;
    ++questions;
    std::istringstream answers(answer(Unescaped(line.substr(2))));
    while (std::getline(answers, line)) actual += "  " + line + "\n";
  }
  EXPECT_GT(questions, 10) << path;
  if (std::getenv("ZTL_UPDATE_EXPECTED") != nullptr)
    std::ofstream(path) << actual;
  else
    EXPECT_EQ(actual, expected);
}

}  // namespace ztl_test
