// Every call of every scenario fails: once, and from there on with all of its kind, with each code of its kind.
//
//   ztl_sweep [--every N] [--seed N] [--jobs N] [--run TEXT]
//       fails one in N calls of the runs whose name holds the text, chosen by the seed, which makes the random machines
//       too
//   ztl_sweep --transcript FILE
//       compares what some runs do, and what each kind of failure changes, with the file; with ZTL_UPDATE_EXPECTED set,
//       it writes the file again: read its difference
//   ztl_sweep --footprint FILE
//       the same for what these runs ask of the operating system
//
// A run with a failure ends, makes at most 20 times the calls of the one without, and leaves nothing behind. Codes that
// mean nothing special differ in what the log says of the code alone. What serves the log changes nothing else. A stack
// is afterwards as before, as without the failure, or otherwise in order, or the log has an error that the other run
// has not.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include "module/names.h"
#include "platform/multi_string.h"
#include "tests/fault_sweep/footprint.h"
#include "tests/fault_sweep/swept_run.h"
#include "ztlsim/input/load_machine.h"
#include "ztlsim/inspect/registry_changes.h"
#include "ztlsim/report/registry_export_writer.h"
#include "ztlsim/scenario/scenarios.h"
#include "ztlsim/text_encoding.h"

namespace ztl_test {
namespace {

using namespace platform;
using simulation::Fault;
using simulation::Registry;
using simulation::RegistryKey;
using Strings = std::vector<std::string>;

constexpr std::uint64_t kMostCalls = 20;  // times those of the run without a failure
constexpr std::uint64_t kMostShown = 20;  // wrong outcomes of a run

// What the run with the failure has said that the one without it has not.
Strings Added(const Strings& log, const Strings& usual) {
  std::multiset<std::string> left(usual.begin(), usual.end());
  Strings added;
  for (const std::string& line : log)
    if (const auto same = left.find(line); same != left.end())
      left.erase(same);
    else
      added.push_back(line);
  return added;
}

bool Same(const RegistryKey& a, const RegistryKey& b) {
  return a.name == b.name && a.values == b.values &&
         std::equal(a.subkeys.begin(), a.subkeys.end(), b.subkeys.begin(), b.subkeys.end(),
                    [](const auto& x, const auto& y) { return Same(*x, *y); });
}

// `text` with the code's numbers, as messages print them, replaced by a word.
std::string WithoutCode(std::string text, std::int32_t code) {
  char forms[7][16];
  const std::uint32_t bits = static_cast<std::uint32_t>(code), result = 0x80070000 | (bits & 0xFFFF);
  std::snprintf(forms[0], 16, "%x", result);
  std::snprintf(forms[1], 16, "%u", result);
  std::snprintf(forms[2], 16, "%d", static_cast<std::int32_t>(result));
  std::snprintf(forms[3], 16, "%08x", bits);
  std::snprintf(forms[6], 16, "%d", code);
  std::snprintf(forms[4], 16, "%u", bits);
  std::snprintf(forms[5], 16, "%x", bits);
  for (const char* const form : forms) {
    const std::size_t length = std::strlen(form);
    const auto isDigit = [&text](std::size_t at) {
      return at < text.size() && std::isxdigit(static_cast<unsigned char>(text[at]));
    };
    for (std::size_t at = text.find(form); at != text.npos; at = text.find(form, at + 1))
      if (!isDigit(at + length) && (at == 0 || !isDigit(at - 1))) text.replace(at, length, "CODE");
  }
  return text;
}

using Names = std::vector<std::u16string>;

Names Entries(const RegistryKey& key, const char16_t* name) {
  const simulation::RegistryValue* const value = key.FindValue(name);
  std::u16string text(value != nullptr ? value->data.size() / 2 : 0, u'\0');
  if (value != nullptr) std::memcpy(text.data(), value->data.data(), text.size() * 2);
  Names entries;
  for (const std::u16string_view entry : MultiStringView(text.data(), text.size()))
    entries.push_back(simulation::UpperCase(entry));
  return entries;
}

// The stacks by their bottoms: "RootDevice" and "UpperBind" of each instance in them, by its subkey.
using Stack = std::map<std::u16string, std::pair<Names, Names>>;
std::map<std::u16string, Stack> StacksOf(Registry& registry) {
  std::map<std::u16string, Stack> stacks;
  const RegistryKey* const netClass = registry.Find(u"HKEY_LOCAL_MACHINE\\" + std::u16string(ztl::kNetAdapterClassKey));
  if (netClass == nullptr) return stacks;
  for (const auto& instance : netClass->subkeys) {
    const RegistryKey* const linkage = instance->FindSubkey(u"Linkage");
    if (linkage == nullptr) continue;
    const Names list = Entries(*linkage, u"RootDevice");
    stacks[list.empty() ? instance->upperName : list.back()][instance->upperName] = {list,
                                                                                     Entries(*linkage, u"UpperBind")};
  }
  return stacks;
}

// Whether every list is the end of the longest one.
bool IsWhole(const Stack& stack) {
  Names longest;
  for (const auto& [subkey, linkage] : stack)
    if (linkage.first.size() > longest.size()) longest = linkage.first;
  return std::all_of(stack.begin(), stack.end(), [&](const auto& instance) {
    const Names& list = instance.second.first;
    return !list.empty() && std::equal(list.rbegin(), list.rend(), longest.rbegin());
  });
}

// Whether each value is from one of the two.
bool IsMixed(const Stack& stack, const Stack& before, const Stack& after) {
  return std::all_of(stack.begin(), stack.end(), [&](const auto& instance) {
    const auto& [subkey, linkage] = instance;
    const auto old = before.find(subkey), now = after.find(subkey);
    return old != before.end() && now != after.end() &&
           (linkage.first == old->second.first || linkage.first == now->second.first) &&
           (linkage.second == old->second.second || linkage.second == now->second.second);
  });
}

// What a run does without a failure.
struct Reference {
  const Outcome usual;
  const std::map<std::u16string, Stack> before, after;

  Reference(const SweptRun& run, Outcome outcome)
      : usual(std::move(outcome)), before(StacksOf(*run.registry)), after(StacksOf(*usual.registry)) {}
};

// Bottoms of the stacks that are neither as they were nor as the run without the failure leaves them, but partly the
// one and partly the other, or not whole any more.
Strings TornStacks(const Reference& reference, Registry& registry) {
  Strings torn;
  for (const auto& [bottom, stack] : StacksOf(registry)) {
    const auto before = reference.before.find(bottom), after = reference.after.find(bottom);
    if (before == reference.before.end() || after == reference.after.end()) continue;
    if (stack == before->second || stack == after->second) continue;
    if (IsMixed(stack, before->second, after->second) || (IsWhole(before->second) && !IsWhole(stack)))
      torn.push_back(ztlsim::Utf16ToUtf8(bottom));
  }
  return torn;
}

// What the run has come to: its results and what its log has more than the other, with the code's numbers taken out.
std::string Said(const Outcome& outcome, const Strings& added, std::int32_t code) {
  std::ostringstream text;
  for (const auto& [method, hr] : outcome.results) text << method << ' ' << std::hex << hr << '\n';
  for (const std::string& line : added) text << line << '\n';
  return WithoutCode(text.str(), code);
}

// A call that a run makes.
struct Call {
  Operation operation;
  std::string kind;  // the operation and the name that it was called with
};

Observer Record(std::vector<Call>& calls) {
  return [&calls](const simulation::Machine&, Operation operation, const simulation::Arguments& arguments) {
    std::string kind = simulation::OperationName(operation);
    if (arguments.name != nullptr)
      for (const char16_t unit : u' ' + std::u16string(arguments.name))
        kind += unit < 0x80 ? static_cast<char>(unit) : '?';
    calls.push_back({operation, kind});
  };
}

// What a worker's process and its parent share.
struct Progress {
  std::atomic<std::uint64_t> tried, wrong, at;
};

// A call to fail, once or with all of its kind that follow, and the codes.
struct Failure {
  std::size_t call;
  Fault fault;
  const Codes& codes;
};

std::vector<Failure> FailuresOf(const std::vector<Call>& calls) {
  std::vector<Failure> failures;
  std::map<Operation, std::uint64_t> made;
  for (std::size_t n = 0; n < calls.size(); ++n) {
    const std::uint64_t number = ++made[calls[n].operation];
    for (const std::uint64_t times : {std::uint64_t{1}, UINT64_MAX})
      failures.push_back(
          {n, {.operation = calls[n].operation, .first = number, .times = times}, CodesOf(calls[n].operation)});
  }
  return failures;
}

// One in `every`, at random; of operations that are seldom called, one in six runs has one.
std::vector<Failure> SampleOf(const std::vector<Failure>& failures, std::uint64_t every, unsigned seed) {
  std::map<Operation, std::uint64_t> calls;
  for (const Failure& failure : failures) ++calls[*failure.fault.operation];
  std::mt19937 random(seed);
  std::vector<Failure> sample;
  for (const Failure& failure : failures)
    if (random() % std::min(every, 6 * calls[*failure.fault.operation]) == 0) sample.push_back(failure);
  return sample;
}

// The runs of a worker's process.
class Worker {
 public:
  Worker(const SweptRun& run, std::filesystem::path root, Progress& progress)
      : run_(run),
        root_(std::move(root)),
        progress_(progress),
        reference_(run, Execute(run_, root_, {}, UINT64_MAX, Record(calls_))) {}

  // The failures of the sample from the `from`-th on.
  void Try(std::uint64_t from, std::uint64_t every, unsigned seed) {
    const std::vector<Failure> all = FailuresOf(calls_);
    const std::vector<Failure> failures = every == 1 ? all : SampleOf(all, every, seed);
    for (std::uint64_t i = from; i < failures.size(); ++i) {
      progress_.at = i;
      failure_ = &failures[i];
      std::optional<Outcome> first;
      std::string firstSaid;
      for (const std::int32_t code : failures[i].codes.ordinary) {
        Outcome outcome = Try(code);
        std::string said = Said(outcome, Added(outcome.log, reference_.usual.log), code);
        if (first && said != firstSaid) Wrong("is not logged as another code:\n" + said + "but:\n" + firstSaid);
        if (first && !Same(outcome.registry->Root(), first->registry->Root()))
          Wrong("not the registry of another code");
        firstSaid = std::move(said);
        first = std::move(outcome);
      }
      for (const std::int32_t code : failures[i].codes.special) Try(code);
    }
  }

 private:
  Outcome Try(std::int32_t code) {
    code_ = code;
    Fault fault = failure_->fault;
    fault.code = code;
    const Outcome& usual = reference_.usual;
    Outcome outcome = Execute(run_, root_, {fault}, kMostCalls * usual.calls);
    ++progress_.tried;
    for (const std::string& left : outcome.left) Wrong("left " + left);
    if (Same(outcome.registry->Root(), usual.registry->Root()) && outcome.results == usual.results) return outcome;
    if (IsOfLog(*fault.operation)) Wrong("changed more than the log");
    const Strings added = Added(outcome.log, usual.log);
    if (std::any_of(added.begin(), added.end(), [](const auto& line) { return line.starts_with("ERROR"); }))
      return outcome;
    for (const std::string& bottom : TornStacks(reference_, *outcome.registry))
      Wrong("tore the stack of " + bottom + " and said nothing");
    return outcome;
  }

  void Wrong(const std::string& what) {
    if (++progress_.wrong > kMostShown) return;
    std::cerr << run_.name << ", call " << failure_->call + 1 << ", " << calls_[failure_->call].kind
              << (failure_->fault.times == 1 ? "" : " and all after it") << ", code " << code_ << ": " << what
              << std::endl;
  }

  const SweptRun& run_;
  const std::filesystem::path root_;
  Progress& progress_;
  std::vector<Call> calls_;
  const Reference reference_;
  const Failure* failure_ = nullptr;
  std::int32_t code_ = 0;
};

std::shared_ptr<Registry> Sample(const std::string& name) {
  auto registry = std::make_shared<Registry>();
  if (const auto error = ztlsim::LoadRegistry({ZTL_SOURCE_DIR "/samples/" + name + ".reg"}, *registry)) {
    std::cerr << error->Text() << '\n';
    std::exit(2);
  }
  return registry;
}

// A sample with some keys and values gone, cut, of another type, or with the data of another value of that name.
std::shared_ptr<Registry> Damaged(const std::string& name, std::mt19937& random) {
  std::shared_ptr<Registry> registry = Sample(name);
  std::vector<RegistryKey*> keys;
  const std::function<void(RegistryKey&)> collect = [&](RegistryKey& key) {
    if (!key.values.empty()) keys.push_back(&key);
    for (const auto& subkey : key.subkeys) collect(*subkey);
  };
  for (int change = 0; change < 12; ++change) {
    keys.clear();
    collect(registry->Root());
    RegistryKey& key = *keys[random() % keys.size()];
    simulation::RegistryValue& value = key.values.Edit()[random() % key.values.size()];
    switch (random() % 6) {
      case 0:
        key.DeleteValue(std::u16string(value.name));
        break;
      case 1:
        if (key.subkeys.empty() && key.parent->parent != nullptr) key.parent->DeleteSubkey(std::u16string(key.name));
        break;
      case 2:
        value.data.resize(random() % (value.data.size() + 1));
        break;
      case 3:
        value.type = random() % 8;
        break;
      default:
        for (const RegistryKey* const other : keys)
          if (const auto* const same = other->FindValue(value.name); same != nullptr && random() % 4 == 0)
            value.data = same->data;
    }
  }
  return registry;
}

std::vector<SweptRun> EveryRun(unsigned seed) {
  std::map<std::string, std::shared_ptr<Registry>> machines;
  for (const auto& file : std::filesystem::directory_iterator(ZTL_SOURCE_DIR "/samples"))
    if (file.path().extension() == ".reg") machines[file.path().stem()] = Sample(file.path().stem());
  std::mt19937 random(seed);
  for (const char* const sample : {"laptop", "loop", "saved-parameters"})
    for (const char* const number : {" 1", " 2"})
      machines["damaged " + (sample + std::string(number))] = Damaged(sample, random);
  std::vector<SweptRun> runs;
  for (const auto& [name, registry] : machines)
    for (const ztlsim::Scenario& scenario : ztlsim::kScenarios) {
      SweptRun run{.name = std::string(scenario.name) + " of " + name, .scenario = scenario.name, .registry = registry};
      if (name == "windows-5.2") run.windows = 5;
      run.driver = run.scenario == "remove" || run.scenario == "unregister";
      run.package = scenario.searchesInf;
      runs.push_back(run);
    }
  return runs;
}

int Sweep(std::uint64_t every, unsigned seed, unsigned jobs, const std::string& text) {
  std::vector<SweptRun> runs = EveryRun(seed);
  std::erase_if(runs, [&](const SweptRun& run) { return run.name.find(text) == run.name.npos; });
  const std::filesystem::path roots =
      std::filesystem::temp_directory_path() / ("ztl-sweep-" + std::to_string(getpid()));
  void* const shared =
      mmap(nullptr, sizeof(Progress) * (runs.size() + 1), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return 2;
  auto* const progress = static_cast<Progress*>(shared);
  std::map<pid_t, std::size_t> workers;  // the run of each process
  const auto start = [&](std::size_t i, std::uint64_t from) {
    const pid_t pid = fork();
    if (pid == 0) {
      Worker(runs[i], roots / std::to_string(i), progress[i]).Try(from, every, seed + 1000 * static_cast<unsigned>(i));
      std::_Exit(0);
    }
    if (pid != -1) workers[pid] = i;
  };
  std::uint64_t tried = 0, wrong = 0;
  for (std::size_t next = 0; next < runs.size() || !workers.empty();) {
    for (; next < runs.size() && workers.size() < jobs; ++next) start(next, 0);
    int status = 0;
    const std::size_t i = workers.extract(wait(&status)).mapped();
    if (status != 0) {
      const bool hangs = WIFEXITED(status) && WEXITSTATUS(status) == kHangs;
      std::cerr << runs[i].name << ", failure " << progress[i].at << (hangs ? " does not end" : " ends the process")
                << ", status " << status << std::endl;
      if (++progress[i].wrong < kMostShown) {
        start(i, progress[i].at + 1);
        continue;
      }
    }
    std::cout << runs[i].name << ": " << progress[i].tried << " failures, " << progress[i].wrong << " wrong"
              << std::endl;
    tried += progress[i].tried;
    wrong += progress[i].wrong;
  }
  std::filesystem::remove_all(roots);
  std::cout << tried << " failures in " << runs.size() << " runs, " << wrong << " wrong" << std::endl;
  return tried == 0 || wrong != 0 ? 1 : 0;
}

// An export's text, without its mark and carriage returns.
std::string ExportText(const std::string& bytes) {
  std::u16string text(bytes.size() / 2, u'\0');
  std::memcpy(text.data(), bytes.data(), bytes.size());
  std::erase_if(text, [](char16_t unit) { return unit == 0xFEFF || unit == u'\r'; });
  return ztlsim::Utf16ToUtf8(text);
}

// How often the same kind of call fails: the same operation on the same name, or one without a name. One that comes
// after another call than before fails once more.
constexpr int kFailuresPerKind = 2, kFailuresWithoutName = 6;

// What the run does, its changes ("!") where they come in the log, and what the first failures of each kind of call
// change in it: the log, what the methods return and how much of the registry comes out otherwise. Failures without
// such an effect are left out, and those that did the same in an earlier run (`written`).
std::string Transcript(const SweptRun& run, const std::filesystem::path& root, std::set<std::string>& written) {
  std::vector<Call> calls;
  std::ostringstream done;
  const Outcome usual =
      Execute(run, root, {}, UINT64_MAX,
              [&, record = Record(calls)](const simulation::Machine& machine, Operation operation,
                                          const simulation::Arguments& arguments) {
                record(machine, operation, arguments);
                if (const std::string change = ChangeText(machine, operation, arguments); !change.empty())
                  done << "! " << change << '\n';
                if (operation == Operation::_write)
                  done << MessageOf({static_cast<const char*>(arguments.data), arguments.dataBytes});
              });
  std::ostringstream found;
  found << "== " << run.name << ": " << usual.calls << " calls\n" << done.str();
  found << ExportText(ztlsim::FormatRegistryChanges(ztlsim::CompareRegistries(*run.registry, *usual.registry)));
  for (const auto& [method, hr] : usual.results) found << method << ' ' << std::hex << hr << std::dec << '\n';
  std::map<std::string, int> failed;
  std::set<std::string> contexts;
  std::string before, twoBefore;
  for (std::size_t n = 0; n < calls.size(); ++n) {
    const auto& [operation, kind] = calls[n];
    const bool isNew = contexts.insert(kind + before + twoBefore).second;
    if (!IsOfLog(operation)) twoBefore = std::exchange(before, kind);
    if (failed[kind]++ >= (kind.find(' ') != kind.npos ? kFailuresPerKind : kFailuresWithoutName) && !isNew) continue;
    const Outcome outcome = Execute(run, root, {{.first = n + 1, .code = CodesOf(operation).transcript}});
    std::ostringstream text;
    if (outcome.results != usual.results)
      for (const auto& [method, hr] : outcome.results)
        text << "  " << method << ' ' << std::hex << hr << std::dec << '\n';
    if (const auto changes = ztlsim::CompareRegistries(*usual.registry, *outcome.registry); !changes.empty())
      text << "  " << changes.size() << " registry changes\n";
    for (const std::string& line : Added(outcome.log, usual.log)) text << "  " << line << '\n';
    for (const std::string& left : Added(outcome.left, usual.left)) text << "  left " << left << '\n';
    const bool isClock =
        operation == Operation::time || operation == Operation::localtime || operation == Operation::strftime;
    if (!isClock && !text.str().empty() && written.insert(kind + text.str()).second)
      found << "- " << kind << '\n' << text.str();
  }
  return found.str();
}

// The laptop with what nobody installs: lists without their ends, strangers in the stacks, an order that names classes
// and more drivers than there is room for.
std::shared_ptr<Registry> Crooked() {
  auto registry = Sample("laptop");
  const std::u16string root = u"HKEY_LOCAL_MACHINE\\";
  const auto set = [](RegistryKey& key, const char16_t* name, DWORD type, std::u16string text) {
    std::replace(text.begin(), text.end(), u',', u'\0');
    const auto* const bytes = reinterpret_cast<const BYTE*>(text.data());
    key.SetValue(name, type, {bytes, bytes + text.size() * 2});
  };
  const std::size_t kLeft = 53;  // characters of the list of drivers, when those of 62 are in it
  for (const char16_t name : {u'a', u'b', u'c', u'd', u'e'}) {
    RegistryKey& ndi = registry->Create(root + ztl::kNetServiceClassKey + u"\\{0" + name + u"}\\Ndi");
    set(ndi, ztl::kServiceValue, REG_SZ, std::u16string(name == u'c' ? kLeft : name == u'e' ? 3 : 62, name) + u',');
    set(ndi, ztl::kFilterDeviceInfIdValue, REG_SZ, std::u16string(2, name) + u',');
    set(ndi, ztl::kFilterClassValue, REG_SZ, name == u'd' ? u"other," : u"scheduler,");
  }
  set(*registry->Find(root + ztl::kParametersKey), ztl::kImOrderValue, REG_MULTI_SZ,
      u"ZTL," + std::u16string(62, u'd') + u",Others,scheduler," + std::u16string(kLeft, u'x') + u",,");
  const auto linkage = [&](std::u16string_view instance) -> RegistryKey& {
    return *registry->Find(root + ztl::kNetAdapterClassKey + u"\\" + std::u16string(instance) + u"\\Linkage");
  };
  const Names stack = Entries(linkage(u"0012"), ztl::kRootDeviceValue);
  set(linkage(u"0012"), ztl::kRootDeviceValue, REG_MULTI_SZ,
      u"{STRANGER}," + stack.at(0) + u',' + stack.at(1) + u',' + stack.at(2));
  set(linkage(u"0012"), ztl::kUpperBindValue, REG_MULTI_SZ, u"Tcpip");
  set(linkage(u"0013"), ztl::kRootDeviceValue, REG_MULTI_SZ,
      std::u16string(200, u's') + u',' + std::u16string(100, u't') + u",,");
  return registry;
}

std::vector<SweptRun> WrittenRuns() {
  return {{"upgrade", "upgrade", Sample("loop")},
          {"upgrade with exclusions", "upgrade", Sample("windows-5.2"), 5},
          {"install a package", "install", Sample("saved-parameters"), 10, false, true},
          {"remove, with a driver", "remove", Sample("saved-parameters"), 10, true},
          {"upgrade that reorders", "upgrade", Sample("laptop")},
          {"notify", "notify", Sample("loop")},
          {"properties", "properties", Sample("laptop")},
          {"reinstall", "reinstall", Sample("saved-parameters")},
          {"register", "register", Sample("loop")},
          {"unregister, with the oldest driver that saves", "unregister", Sample("saved-parameters"), 10, true, false,
           [](auto& machine, auto&) {
             machine.driver.version = {259, 10, 0, 1};
           }},
          {"unregister, with an older driver", "unregister", Sample("saved-parameters"), 10, true, false,
           [](auto& machine, auto&) {
             machine.driver.version = {3, 9, 255, 65536};
           }},
          {"unregister", "unregister", Sample("saved-parameters")},
          {"load", "load", Sample("loop")},
          {"upgrade of a crooked machine", "upgrade", Crooked()},
          {"upgrade, with a lock that is held", "upgrade", Sample("windows-5.2"), 5, false, false,
           [](auto& machine, auto&) { machine.engine.otherClient = u"Setup"; }},
          {"notify of a transport, without filter classes", "notify", Sample("laptop"), 10, false, false,
           [](auto& machine, auto& options) {
             machine.registry.Create(u"HKEY_LOCAL_MACHINE\\" + std::u16string(ztl::kControlNetworkKey))
                 .SetValue(ztl::kFilterClassesValue, REG_SZ, {});
             options.paths.clear();
             options.changeFlag = NCN_NETTRANS;
           }},
          {"unregister, with a driver in use", "unregister", Sample("saved-parameters"), 10, true, false,
           [](auto& machine, auto&) { machine.driver.isOpen = true; }},
          {"properties, cancelled", "properties", Sample("laptop"), 10, false, false, [](auto&, auto& options) {
             options.page.button = ztlsim::PageButton::Cancel;
             options.pageAgain = true;
           }}};
}

std::string Transcripts(const std::filesystem::path& root) {
  std::string text;
  std::set<std::string> written;
  for (const SweptRun& run : WrittenRuns()) text += Transcript(run, root, written);
  return text;
}

std::string FootprintPage(const std::filesystem::path& root) {
  Footprint footprint;
  for (const SweptRun& run : WrittenRuns())
    Execute(run, root, {}, UINT64_MAX,
            [&](const simulation::Machine& machine, Operation operation, const simulation::Arguments& arguments) {
              footprint.See(machine, run.scenario, operation, arguments);
            });
  return R"(# What the module asks of the operating system

Every operation, what it is asked of, with which rights, flags and sizes, and how often, in the order in which the
scenarios of `ztlsim` first ask it on the sample machines, those that install and remove included. `<instance>` stands for an
adapter's key, `<link>` for a device interface's, `<GUID>` for an adapter's or a component's name. What the configuration
engine asks on its own behalf is left out; what the host of the notify object asks of COM and the engine is not.

The test `footprint_is_as_written` holds this page; `ZTL_UPDATE_EXPECTED=1 build/host/tests/ztl_sweep --footprint
docs/footprint.md` writes it again.

)" + footprint.Table();
}

// Whether the file has this text; with ZTL_UPDATE_EXPECTED, it gets it first.
int Compare(const std::string& file, std::string (*make)(const std::filesystem::path& root)) {
  const std::filesystem::path root = std::filesystem::temp_directory_path() / ("ztl-sweep-" + std::to_string(getpid()));
  std::istringstream actual(make(root));
  std::filesystem::remove_all(root);
  if (std::getenv("ZTL_UPDATE_EXPECTED") != nullptr) std::ofstream(file, std::ios::binary) << actual.str();
  std::ifstream expected(file, std::ios::binary);
  for (int line = 1; actual || expected; ++line) {
    std::string now, before;
    std::getline(actual, now);
    std::getline(expected, before);
    if (now == before) continue;
    std::cout << file << ":" << line << ": is\n  " << now << "\ninstead of\n  " << before << "\n";
    return 1;
  }
  return 0;
}

}  // namespace
}  // namespace ztl_test

int main(int argc, char** argv) {
  std::map<std::string, std::string> options{{"--every", "1"}, {"--seed", "1"},      {"--jobs", ""},
                                             {"--run", ""},    {"--transcript", ""}, {"--footprint", ""}};
  for (int i = 1; i < argc; i += 2) {
    const auto option = options.find(argv[i]);
    if (option == options.end() || i + 1 == argc) {
      std::cerr
          << "usage: ztl_sweep [--every N] [--seed N] [--jobs N] [--run TEXT] | --transcript FILE | --footprint FILE\n";
      return 2;
    }
    option->second = argv[i + 1];
  }
  if (!options["--transcript"].empty()) return ztl_test::Compare(options["--transcript"], ztl_test::Transcripts);
  if (!options["--footprint"].empty()) return ztl_test::Compare(options["--footprint"], ztl_test::FootprintPage);
  const auto number = [&](const char* name, unsigned long least) {
    return std::max(std::strtoul(options[name].c_str(), nullptr, 10), least);
  };
  const unsigned long cores = options["--jobs"].empty() ? std::thread::hardware_concurrency() : 1;
  return ztl_test::Sweep(number("--every", 1), static_cast<unsigned>(number("--seed", 0)),
                         static_cast<unsigned>(number("--jobs", std::max(cores, 1ul))), options["--run"]);
}
