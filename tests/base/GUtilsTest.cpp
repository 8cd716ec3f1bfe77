#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <set>

#include "libfilter/SystemBase.h"

using namespace SystemBase;

namespace {

// Restores one environment variable when the test leaves.
struct SavedVariable {
    explicit SavedVariable(const char* n) : name(n), had(get_environment_variable(n, value)) {}
    ~SavedVariable() {
        had ? set_environment_variable(name, value) : delete_environment_variable(name);
    }
    std::string name, value;
    bool had;
};

std::string Get(const char* name) {
    std::string value = "<unset>";
    get_environment_variable(name, value);
    return value;
}

}  // namespace

TEST(SystemServices, EnvironmentAndHome) {
    const char* name = "LIBFILTER_TEST_VARIABLE";
    SavedVariable saved(name), home("HOME");
    EXPECT_TRUE(delete_environment_variable(name));
    EXPECT_EQ(Get(name), "<unset>");  // value untouched when unset
    EXPECT_TRUE(set_environment_variable(name, "one") && set_environment_variable(name, "two"));
    EXPECT_EQ(Get(name), "two");
    EXPECT_FALSE(set_environment_variable("A=B", "x"));
    set_environment_variable("HOME", "/home/someone");
    EXPECT_EQ(get_home_path(), "/home/someone");
    delete_environment_variable("HOME");
    EXPECT_EQ(get_home_path(), "");
}

TEST(SystemServices, DllLoadPathKeepsItsLeadingColon) {
    SavedVariable saved("LD_LIBRARY_PATH");
    delete_environment_variable("LD_LIBRARY_PATH");
    const std::pair<const char*, const char*> steps[] = {
        {"/opt/a", ":/opt/a"},
        {"/opt/a", ":/opt/a"},
        {"/opt/b", ":/opt/a:/opt/b"},
        {"/opt", ":/opt/a:/opt/b:/opt"}};  // a prefix of an entry is not that entry
    for (const auto& [directory, expected] : steps) {
        set_dll_load_path(directory);
        EXPECT_EQ(Get("LD_LIBRARY_PATH"), expected);
    }
    set_environment_variable("LD_LIBRARY_PATH", "");
    set_dll_load_path("/x");
    EXPECT_EQ(Get("LD_LIBRARY_PATH"), ":/x");
}

TEST(SystemServices, ClockCountsMilliseconds) {
    const uint64_t before = get_system_time();
    const auto start = std::chrono::steady_clock::now();
    system_sleep(30);
    const auto slept = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    const uint64_t elapsed = get_system_time() - before;
    EXPECT_GE(slept.count(), 30);
    EXPECT_GE(elapsed, 29u);  // each reading is floored to the millisecond
    EXPECT_LE(elapsed, uint64_t(slept.count()) + 200);
}

TEST(SystemServices, MachineFactsAndGuids) {
    EXPECT_GE(get_cpu_count(), 1u);
    EXPECT_FALSE(SystemUtils::OSIs64Bit());
    EXPECT_GT(SystemUtils::GetDiskFreeSpaceByPath("/"), 0u);
    EXPECT_EQ(SystemUtils::GetDiskFreeSpaceByPath("/no/such/directory"), 0u);
    EXPECT_DOUBLE_EQ(angle_to_radian(-180.0), -3.14159265358979323846);
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i)
        seen.insert(generate_guid(false));
    EXPECT_EQ(seen.size(), 100u);
    for (const std::string& guid : seen) {
        EXPECT_EQ(guid.size(), 36u);
        EXPECT_EQ(guid.find_first_not_of("0123456789abcdefABCDEF-"), std::string::npos);
    }
    const std::string braced = generate_guid(true);
    EXPECT_EQ(braced.size(), 38u);
    EXPECT_EQ(braced.front() + std::string() + braced.back(), "{}");
}

TEST(SystemServices, DynamicLibraries) {
    const char* dir = std::getenv("LIBFILTER_TEST_LIB_DIR");
    if (dir == nullptr) GTEST_SKIP() << "LIBFILTER_TEST_LIB_DIR not set";
#if defined(__APPLE__)
    const char* kSuffix = ".dylib";
#else
    const char* kSuffix = ".so";
#endif
    void* handle = load_dll((std::string(dir) + "/libcore" + kSuffix).c_str());
    ASSERT_NE(handle, nullptr);
    EXPECT_NE(get_proc_addr(handle, "libcore_memcpy"), nullptr);
    EXPECT_EQ(get_proc_addr(handle, "no_such_symbol"), nullptr);
    free_dll(handle);
    EXPECT_EQ(load_dll("/no/such/library.so"), nullptr);
    EXPECT_EQ(load_dll(nullptr), nullptr);
    EXPECT_EQ(get_proc_addr(nullptr, "libcore_memcpy"), nullptr);  // not a global search
    free_dll(nullptr);
}
