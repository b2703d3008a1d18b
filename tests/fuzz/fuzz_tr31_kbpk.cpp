// The shape checks on TR-31 key blocks and KBPK files, and the KBPK state names and flag texts.
#include <cstring>
#include <span>
#include <string>

#include "fuzz_check.hpp"
#include "keys/kbpk.hpp"
#include "keys/keys_init.hpp"
#include "keys/tr31.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz_text(data, size);
    // The key file's head with the file's own size, and with every size a stat could report.
    for (const std::uint64_t claimed :
         {std::uint64_t{size}, std::uint64_t{0}, tr31::min_size - 1, tr31::min_size, tr31::max_size,
          tr31::max_size + 1, ~std::uint64_t{0}}) {
        FUZZ_CHECK((tr31_size_fault(claimed) == Tr31Fault::none) ==
                   (claimed >= tr31::min_size && claimed <= tr31::max_size));
        if (size < tr31::head_size) {
            continue;
        }
        const Tr31Fault fault = tr31_head_fault(
            std::span<const std::uint8_t, tr31::head_size>(data, tr31::head_size), claimed);
        FUZZ_CHECK((tr31_fault_message(fault) == nullptr) == (fault == Tr31Fault::none));
        if (fault == Tr31Fault::none) {
            // An accepted block's length field is its size, four digits, whole cipher blocks.
            const std::string digits(text.substr(1, 4));
            FUZZ_CHECK(digits.find_first_not_of("0123456789") == std::string::npos);
            FUZZ_CHECK(std::stoull(digits) == claimed && claimed % 8 == 0);
        }
    }

    // The FLAG file: what the program writes it reads back, and four hexadecimal digits are
    // their place values, whatever their case.
    if (size >= 2) {
        const auto value = static_cast<std::uint16_t>(data[0] | (data[1] << 8));
        FUZZ_CHECK(kbpk_flag_value(std::span<const char, 4>(kbpk_flag_text(value).data(), 4)) ==
                   value);
    }
    if (size >= 4 && text.substr(0, 4).find_first_not_of("0123456789abcdefABCDEF") ==
                         std::string_view::npos) {
        unsigned expected = 0;
        for (const char c : text.substr(0, 4)) {
            const char* digits = "0123456789abcdef";
            const auto lower = static_cast<char>(c >= 'A' && c <= 'F' ? c - 'A' + 'a' : c);
            expected = expected * 16 + static_cast<unsigned>(std::strchr(digits, lower) - digits);
        }
        FUZZ_CHECK(kbpk_flag_value(std::span<const char, 4>(text.data(), 4)) == expected);
    }

    // "main-user" may not sign a KBPK file; every other role gives PCI PIN security on or off.
    const auto flags = kbpk_signer_flags(text);
    FUZZ_CHECK(flags ? *flags == 0 || *flags == sapi::flag_pci_pin : text == "main-user");

    // A state directory entry: only ".KBPK" and four digits naming acquirers 0 to 255.
    if (const auto id = kbpk_state_name_id(text)) {
        FUZZ_CHECK(*id >= 0 && *id <= 255);
        FUZZ_CHECK(kbpk_state_path(*id).ends_with(text));
    }
    return 0;
}
