// The command table's shape and the exact usage text.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include "front/commands.hpp"

namespace {

std::string captured_usage(const char* name) {
    std::fflush(stdout);
    char* buf = nullptr;
    std::size_t len = 0;
    FILE* mem = open_memstream(&buf, &len);
    FILE* saved = stdout;
    stdout = mem;
    print_usage(name);
    std::fflush(mem);
    stdout = saved;
    std::fclose(mem);
    std::string out(buf, len);
    std::free(buf);
    return out;
}

TEST(CommandTable, EveryRowTakesAFixedCountAndOptionsAreUnique) {
    std::set<std::string> seen;
    for (const CommandEntry& row : cmds) {
        EXPECT_EQ(row.min_args, row.max_args) << row.option;
        EXPECT_GE(row.min_args, 2) << row.option;
        EXPECT_NE(row.handler, nullptr) << row.option;
        EXPECT_TRUE(seen.insert(row.option).second) << row.option;
    }
}

TEST(CommandTable, LookupNeedsExactOptionAndCount) {
    char prog[] = "orvin-auth";
    char install[] = "--install";
    char upper[] = "--INSTALL";
    char a[] = "a";
    char b[] = "b";
    char* four[] = {prog, install, a, b, nullptr};
    char* three[] = {prog, install, a, nullptr};
    char* wrong_case[] = {prog, upper, a, b, nullptr};
    const CommandEntry* row = find_command(4, four);
    ASSERT_NE(row, nullptr);
    EXPECT_STREQ(row->option, "--install");
    EXPECT_EQ(find_command(3, three), nullptr);
    EXPECT_EQ(find_command(4, wrong_case), nullptr);
    EXPECT_EQ(find_command(1, four), nullptr);
}

TEST(CommandTable, UsageListsVisibleRowsInTableLayout) {
    const std::string expected =
        "\nUsage: prog <option> <parameters>\n"
        "Where:\n"
        "    <option>                 <parameters>\n"
        "    --install-cert-check     <certificate file>\n"
        "    --install-cert           <certificate file>\n"
        "    --install-image-check    <image file>\n"
        "    --install-image          <image file>\n"
        "    --install-check          <signed file> <installed filename>\n"
        "    --install                <signed file> <installed filename>\n"
        "    --remove                 <cert/signed file>\n"
        "    --rename                 <cert/signed file> <new filename>\n"
        "    --update-os              <operating system image file>\n"
        "    --make-factory           \n"
        "    --make-restore           \n"
        "    --wipe                   \n"
        "    --install-kbpk-check     <acquirer ID> <kbpk file>\n"
        "    --install-kbpk           <acquirer ID> <kbpk file>\n"
        "    --remove-kbpk            <acquirer ID>\n"
        "    --update-kbpk-pci-pin    <acquirer ID> <kbpk file>\n"
        "    --verify-kbpk-pci-pin    <acquirer ID>\n"
        "    --install-key-check      <acq ID> <tr31 file> <opk file>\n"
        "    --install-key            <acq ID> <tr31 file> <opk file>\n";
    EXPECT_EQ(captured_usage("prog"), expected);
}

}  // namespace
