// The shape checks on TR-31 key blocks and KBPK files, and the KBPK state names and flag texts.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

#include "fuzz_check.hpp"
#include "keys/kbpk.hpp"
#include "keys/keys_init.hpp"
#include "keys/tr31.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The key file's head with the file's own size, and with every size a stat could report.
    if (size >= tr31::head_size) {
        const std::span<const std::uint8_t, tr31::head_size> head(data, tr31::head_size);
        for (const std::uint64_t claimed : {std::uint64_t{size}, std::uint64_t{0}, tr31::min_size,
                                            tr31::max_size, ~std::uint64_t{0}}) {
            const Tr31Fault fault = tr31_head_fault(head, claimed);
            FUZZ_CHECK((tr31_fault_message(fault) == nullptr) == (fault == Tr31Fault::none));
            if (fault == Tr31Fault::none) {
                // An accepted block's length field is its size, four digits.
                const std::string digits(reinterpret_cast<const char*>(data) + 1, 4);
                FUZZ_CHECK(digits.find_first_not_of("0123456789") == std::string::npos);
                FUZZ_CHECK(std::stoull(digits) == claimed);
            }
        }
    }
    const std::uint64_t size_fault_input = size >= 8 ? [&] {
        std::uint64_t v;
        std::memcpy(&v, data, sizeof v);
        return v;
    }() : size;
    const Tr31Fault by_size = tr31_size_fault(size_fault_input);
    FUZZ_CHECK((by_size == Tr31Fault::none) ==
               (size_fault_input >= tr31::min_size && size_fault_input <= tr31::max_size));

    // The FLAG file: four characters read as strtoul reads them in base 16.
    if (size >= 4) {
        const std::span<const char, 4> text(reinterpret_cast<const char*>(data), 4);
        char copy[5] = {};
        std::memcpy(copy, data, 4);
        const auto expected = static_cast<std::uint16_t>(std::strtoul(copy, nullptr, 16));
        FUZZ_CHECK(kbpk_flag_value(text) == expected);
        FUZZ_CHECK(kbpk_flag_value(std::span<const char, 4>(kbpk_flag_text(expected).data(), 4)) ==
                   expected);
    }

    const std::string_view text = fuzz_text(data, size);
    if (const auto flags = kbpk_signer_flags(text)) {
        FUZZ_CHECK(*flags == 0 || *flags == sapi::flag_pci_pin);
    } else {
        FUZZ_CHECK(text == "main-user");
    }

    // A state directory entry: only ".KBPK" and four digits naming acquirers 0 to 255.
    if (const auto id = kbpk_state_name_id(text)) {
        FUZZ_CHECK(*id >= 0 && *id <= 255);
        FUZZ_CHECK(kbpk_state_path(*id).ends_with(text));
    }
    return 0;
}
