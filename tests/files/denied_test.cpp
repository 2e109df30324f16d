// Access denied on open: the record's additional flag tells a rights problem
// (the target is not read-only) from a read-only file.
#include <sys/stat.h>

#include "files_fixture.h"

namespace kp::files::test {
namespace {

constexpr int32_t kReadWrite = 3;

TEST_F(DeviceTest, DeniedOnAWritableTargetSetsTheAdditionalFlag) {
    std::filesystem::create_directories(host_path("Folder"));
    auto out = call("fOpen", {Value::string(u"\\Folder"), Value::integer(kReadWrite)});
    EXPECT_EQ(out.result.i, -1);
    EXPECT_EQ(out.error.system_code, 5u);
    EXPECT_EQ(out.error.additional[0], 1u);
    EXPECT_EQ(out.error.additional[1], 1u);
}

TEST_F(DeviceTest, DeniedOnAReadOnlyFileLeavesTheFlagClear) {
    put("ro.txt", "x");
    ::chmod(host_path("ro.txt").c_str(), 0444);
    auto out = call("fOpen", {Value::string(u"\\ro.txt"), Value::integer(kReadWrite)});
    EXPECT_EQ(out.result.i, -1);
    EXPECT_EQ(out.error.system_code, 5u);
    EXPECT_EQ(out.error.additional[0], 0u);
    EXPECT_EQ(out.error.additional[1], 0u);
}

} // namespace
} // namespace kp::files::test
