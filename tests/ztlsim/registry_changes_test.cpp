#include "ztlsim/inspect/registry_changes.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/random_registry.h"
#include "ztlsim/input/registry_export.h"
#include "ztlsim/report/registry_export_writer.h"
#include "ztlsim/text_encoding.h"

namespace ztlsim {
namespace {

using simulation::Registry;

TEST(RegistryChanges, TurnTheOneIntoTheOther) {
  for (unsigned round = 0; round < 200; ++round) {
    const std::size_t many = round % 20 == 0 ? 300 : 4;
    ztl_test::RandomChanges random(round, many);
    Registry before;
    random.Make(before, 4 * many);
    const auto after = before.Copy();
    random.Make(*after, 4 * many);
    ASSERT_FALSE(ReadRegistryExport("t", FormatRegistryChanges(CompareRegistries(before, *after)), before));
    ASSERT_EQ(ztl_test::Dump(before.Root()), ztl_test::Dump(after->Root())) << round;
    ASSERT_TRUE(CompareRegistries(before, *after).empty());
  }
}

}  // namespace
}  // namespace ztlsim
