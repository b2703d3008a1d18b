// Which nvram lines become certificate files: the edges beyond the values restored at start-up.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "certs/cert_restore.hpp"

TEST(CertFromNvram, LastCharacterGoesThenHexDecodes) {
    EXPECT_EQ(cert_from_nvram_line(""), std::string());
    EXPECT_EQ(cert_from_nvram_line("2d2D41\n"), std::string("--A"));
    EXPECT_EQ(cert_from_nvram_line("2d\r\n"), std::nullopt);  // the carriage return stays and fails
}
