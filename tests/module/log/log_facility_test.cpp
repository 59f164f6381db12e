#include "module/log/log_facility.h"

#include <fstream>

#include "module/notify/module_log.h"
#include "platform/files.h"
#include "tests/support/machine_fixture.h"

namespace {

using namespace ztl;
using namespace ztl_test;
using simulation::Arguments;
using simulation::Operation;

constexpr std::size_t kLimit = 1024000;

class LogTest : public MachineTest {
 protected:
  void WriteLog(std::size_t bytes, char fill = 'x') const {
    std::ofstream(LogPath(), std::ios::binary) << std::string(bytes, fill);
  }
  std::filesystem::path BackupPath() const { return LogPath().string() + ".backup"; }
  std::string LogText() const { return ReadFile(LogPath()); }

  // Logs one message and returns what the debugger saw beside the message itself.
  std::vector<std::string> Troubles(const char* message = "text") {
    machine_.debugOutput.clear();
    LogMessage(g_ModuleLog, SEV_INFO, "%s", message);
    std::erase(machine_.debugOutput, "INFO:" + std::string(message) + "\n");
    return machine_.debugOutput;
  }
};

TEST_F(LogTest, SeveritiesDecideWhereAMessageGoes) {
  struct Case {
    platform::DWORD severity;
    const char* name;  // null: rejected
    bool inFile;
  };
  OpenModuleLog();
  for (const Case& c : {Case{SEV_DEBUG, "DEBUG", false}, Case{SEV_INFO, "INFO", true}, Case{0, "INFO", true},
                        Case{SEV_WARNING, "WARNING", true}, Case{SEV_ERROR, "ERROR", true},
                        Case{SEV_CRITICAL, "CRITICAL", true}, Case{SEV_POPUP, "POPUP", true}, Case{3, nullptr, false},
                        Case{64, nullptr, false}, Case{0x80000000u, nullptr, false}}) {
    WriteLog(0);
    machine_.debugOutput.clear();
    LogMessage(g_ModuleLog, c.severity, "text");
    Strings expected;
    char number[16];
    Format(number, "%lX", c.severity);
    if (c.severity == 0) expected = {"WARNING: ", "LogMessage NO severity provided, defaulting to SEV_INFO\n"};
    if (c.name != nullptr)
      expected.push_back(std::string(c.name) + ":text\n");
    else
      expected = {"ERROR: ", "unknown MsgType " + std::string(number) + "\n"};
    EXPECT_EQ(machine_.debugOutput, expected) << c.severity;
    EXPECT_EQ(LogText().empty(), !c.inFile) << c.severity;
    if (c.inFile) EXPECT_NE(LogText().find(std::string(c.name) + ": text\r\n"), std::string::npos);
  }
  EXPECT_TRUE(machine_.messageBoxes.empty());
  LogFacility log = g_ModuleLog;
  log.popupStyle = 0x30;
  LogMessage(log, SEV_POPUP, "%s", std::string(2000, 'm').c_str());
  ASSERT_EQ(machine_.messageBoxes.size(), 1u);
  EXPECT_EQ(machine_.messageBoxes[0].text, std::string(1039, 'm'));
  EXPECT_EQ(machine_.messageBoxes[0].caption, "ztli64x");
}

TEST_F(LogTest, LongTextsAreCutAndStillEndTheirLine) {
  OpenModuleLog();
  machine_.debugOutput.clear();
  const std::u16string wide(5000, u'w');
  TraceLine(u"%s\n", wide.c_str());
  EXPECT_EQ(LogText().size(), 1024u);  // 1,023 and the carriage return
  EXPECT_TRUE(LogText().ends_with("ww\r\n"));
  EXPECT_EQ(machine_.debugOutput.at(0).size(), 527u);
  EXPECT_TRUE(machine_.debugOutput.at(0).ends_with("ww\n"));
  WriteLog(0);
  TraceLine(u"two\n\n");
  TraceLine(u"%s", u"");
  EXPECT_EQ(Lines(LogText()).size(), 3u);
  EXPECT_TRUE(LogText().find(": two\r\n\r\n") != std::string::npos && LogText().ends_with(": \r\n"));
}

TEST_F(LogTest, RotatesAtTheLimitAndKeepsOneBackup) {
  OpenModuleLog();
  WriteLog(kLimit - 1);
  EXPECT_EQ(Troubles(), Strings{});
  EXPECT_GT(LogText().size(), kLimit);
  EXPECT_FALSE(std::filesystem::exists(BackupPath()));

  const Strings rotation{"LOG: ", "Enforcing circular\n", "LOG: ",
                         "Copying <C:\\Windows\\temp\\ztlinst.log> to <C:\\Windows\\temp\\ztlinst.log.backup>\n"};
  std::vector<std::int64_t> locked, modes;
  machine_.observer = [&](Operation operation, const Arguments& a) {
    if (operation == Operation::_locking && a.flags == platform::_LK_LOCK) locked.push_back(a.number2);
    if (operation == Operation::_creat) modes.push_back(a.flags);
  };
  for (const char fill : {'a', 'b'}) {
    WriteLog(kLimit, fill);
    EXPECT_EQ(Troubles(), rotation);
    // A byte more than there is, and a carriage return more than is written: whoever appends meanwhile waits.
    EXPECT_EQ(std::exchange(locked, {}), (std::vector<std::int64_t>{kLimit + 1, 44}));
    EXPECT_EQ(std::exchange(modes, {}), std::vector<std::int64_t>(2, 0x180));
    EXPECT_EQ(ReadFile(BackupPath()), std::string(kLimit, fill));
    EXPECT_EQ(LogMessages(), Strings{"text"});
  }
  machine_.observer = nullptr;
  // The backup is the log byte for byte, also where its line ends meet the copy's chunks.
  std::string lines;
  while (lines.size() < kLimit) lines += std::string(lines.size() % 7, 'l') + "\r\r\n";
  std::ofstream(LogPath(), std::ios::binary) << lines;
  Troubles();
  EXPECT_TRUE(ReadFile(BackupPath()) == lines);
}

TEST_F(LogTest, OpenLogMasterRefusesWhatIsNoPlace) {
  struct Case {
    const char* file;
    const char* directory;
    std::uint8_t mode;
    Strings output;
  };
  std::ofstream(root_ / "file") << "x";
  for (const Case& c :
       {Case{"", "C:\\logs", 1, {"ERROR: ", "no filename\n"}}, Case{"l", nullptr, 1, {"ERROR: ", "no path\n"}},
        Case{"l", "", 1, {"ERROR: ", "no path\n"}},
        Case{"l", "C:\\no\\such", 1, {"ERROR: ", "Master failed to open/create path C:\\no\\such\n"}},
        Case{"l", "D:\\logs", 1, {"ERROR: ", "Master failed to open/create path D:\\logs\n"}},
        Case{"l", "C:\\file", 1, {"ERROR: ", "Master failed to open log, MUST abort\n"}},
        Case{"l", "C:\\Windows", 16, {"ERROR: ", "Master failed to open log, MUST abort\n"}},
        Case{"l",
             "C:\\Windows",
             0x81,
             {"ERROR: ", "mode ffffff81 not supported\n", "ERROR: ", "Master failed to open log, MUST abort\n"}}}) {
    machine_.debugOutput.clear();
    LogFacility log{};
    OpenLogMaster(log, c.file, c.directory, 1, c.mode, kNoPopup, "tag");
    EXPECT_EQ(log.available, 0u);
    EXPECT_EQ(machine_.debugOutput, c.output);
    machine_.debugOutput.clear();
    LogMessage(log, SEV_ERROR, "dropped");
    EXPECT_EQ(machine_.debugOutput,
              (Strings{"WARNING: ", "LogMessage instantiation of class failed, LOG FACILITY IS UNAVAILABLE !!\n"}));
  }
}

TEST_F(LogTest, WithoutAWindowsDirectoryTheLogStandsBelowTheRoot) {
  machine_.files.windowsDirectory.clear();
  OpenModuleLog();
  LogMessage(g_ModuleLog, SEV_INFO, "text");
  EXPECT_EQ(Lines(ReadFile(root_ / "temp" / "ztlinst.log")).size(), 1u);
}

TEST_F(LogTest, EveryTroubleIsReportedWithItsNumber) {
  struct Case {
    Operation operation;
    std::uint64_t call;  // which one of the message's calls of the operation
    std::size_t size;    // of the log before the message
    Strings output;
    bool written;
  };
  const Strings rotating{"LOG: ", "Enforcing circular\n", "LOG: ",
                         "Copying <C:\\Windows\\temp\\ztlinst.log> to <C:\\Windows\\temp\\ztlinst.log.backup>\n"};
  auto rotation = [&](Strings output) {
    output.insert(output.begin(), rotating.begin(), rotating.end());
    return output;
  };
  const Strings lost{"ERROR: ", "backup failed; old log will be lost\n"};
  auto failedBackup = [&](const char* text) {
    Strings output = rotation({"ERROR: ", text});
    output.insert(output.end(), lost.begin(), lost.end());
    return output;
  };
  const Case cases[] = {
      {Operation::_open, 1, 0, {"ERROR: ", "_open failed rc=13\n"}, true},
      {Operation::_open, 2, 0, {"ERROR: ", "Failed to open log, try next msg in buf\n"}, false},
      {Operation::_lseek, 1, 0, {"ERROR: ", "Failed to move File ptr rc=13\n"}, false},
      {Operation::_lseek, 2, 0, {"ERROR: ", "Failed to move File ptr rc=13\n"}, false},
      {Operation::_lseek, 3, 0, {"ERROR: ", "Failed to move File ptr for unlock rc=13\n"}, true},
      {Operation::_locking, 1, 0, {"ERROR: ", "Failed to lock 43 bytes rc=13\n"}, false},
      {Operation::_locking, 2, 0, {"ERROR: ", "Failed to unlock Log file rc=13\n"}, true},
      {Operation::_write, 1, 0, {}, false},
      {Operation::time, 1, 0, {}, true},
      {Operation::_filelength, 1, 5, {"ERROR: ", "_filelength failed rc=13\n", "LOG: ", rotating[3]}, true},
      {Operation::_creat, 1, kLimit,
       failedBackup("CopyLogFile create <C:\\Windows\\temp\\ztlinst.log.backup> failed rc=13\n"), true},
      {Operation::_open, 2, kLimit, failedBackup("CopyLogFile open <C:\\Windows\\temp\\ztlinst.log> failed rc=13\n"),
       true},
      {Operation::_filelength, 2, kLimit, failedBackup("CopyLogFile file size failed rc=13\n"), true},
      {Operation::_locking, 1, kLimit, failedBackup("CopyLogFile lock file failed rc=13\n"), true},
      {Operation::_read, 2, kLimit, rotation({"ERROR: ", "CopyLogFile read failed rc=13\n"}), true},
      {Operation::_creat, 2, kLimit, rotation({"ERROR: ", "_creat failed rc=13\n"}), true},
  };
  OpenModuleLog();
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(OperationName(c.operation)) + " " + std::to_string(c.call));
    WriteLog(c.size);
    machine_.faults = {{.operation = c.operation, .first = c.call, .code = 13}};
    EXPECT_EQ(Troubles(), c.output);
    machine_.faults.clear();
    EXPECT_EQ(LogText().ends_with(": text\r\n"), c.written);
    const bool keepsOldLog = c.operation == Operation::_creat && c.call == 2;
    EXPECT_EQ(LogText().size() > kLimit, keepsOldLog);  // a failed backup does not
    ExpectNothingLeft();
  }
}

// Between the look at the end and the lock, another process writes a line, or rotates the file.
TEST_F(LogTest, ALineMovesToWhereTheEndIsOnceItIsLocked) {
  OpenModuleLog();
  for (const std::size_t otherSize : {100u, 3u}) {
    WriteLog(50);
    machine_.observer = [this, otherSize](Operation operation, const Arguments&) {
      if (operation != Operation::_locking || LogText().size() != 50) return;
      WriteLog(otherSize, 'o');
    };
    const std::uint64_t before = machine_.Calls(Operation::_locking);
    EXPECT_EQ(Troubles(), Strings{});
    EXPECT_EQ(machine_.Calls(Operation::_locking) - before, 4u);
    machine_.observer = nullptr;
    EXPECT_EQ(LogText().substr(0, otherSize), std::string(otherSize, 'o'));
    EXPECT_EQ(LogText().size(), otherSize + 44);
  }
}

}  // namespace
