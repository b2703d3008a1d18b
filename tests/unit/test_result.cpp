// Result in a release build: a value exists only for a success, and reading one from a failure
// stops the program instead of handing out something nobody produced.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "base/result.hpp"

namespace {

Result<std::string> make(ExitStatus status) {
    if (status != ST_OK) {
        return status;
    }
    return std::string("verified");
}

TEST(ResultDeathTest, ValueOfAFailureAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const ExitStatus failure : {ST_FAILURE, ST_BAD_SIGNATURE, ST_BAD_ARGUMENT}) {
        Result<std::string> r = make(failure);
        const Result<std::string>& cr = r;
        EXPECT_DEATH((void)r.value(), "") << failure;
        EXPECT_DEATH((void)cr->size(), "") << failure;
        EXPECT_DEATH((void)*cr, "") << failure;
        EXPECT_DEATH((void)std::move(r).value(), "") << failure;
    }
}

TEST(ResultDeathTest, FailureCannotBeMadeFromSuccess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH((void)Result<int>(ST_OK), "");
}

}  // namespace
