// The KSN report the device writes, and the lines of the KSN log, which survive restarts and may be
// damaged.
#include <span>
#include <string>

#include "fuzz_check.hpp"
#include "state/ksn.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The report: the answer echoes whatever KSN the log held, and an entry made from a report
    // reads back as the same key and KSN.
    const KsnReport report = ksn_parse_report(std::span<const std::uint8_t>(data, size));
    const std::string entry = create_ksn_entry(report.key_index, report.ksn);
    FUZZ_CHECK(check_file_line(entry, report.key_index, report.ksn) == 0);
    Ksn back{};
    FUZZ_CHECK(get_ksn_reg_from_str(entry, back) == 0 && back == report.ksn);
    const KsnAnswer answer = ksn_encode_answer(ksn::status_matched, report.ksn);
    FUZZ_CHECK(answer[0] == ksn::status_matched);

    // Each line of the input as a log line, judged against the report's key and KSN.
    const std::string log(reinterpret_cast<const char*>(data), size);
    for (std::size_t start = 0; start < log.size();) {
        std::size_t end = log.find('\n', start);
        end = end == std::string::npos ? log.size() : end + 1;
        const std::string line = log.substr(start, end - start);
        start = end;
        Ksn held{};
        const int parsed = get_ksn_reg_from_str(line, held);
        const int matched = check_file_line(line, report.key_index, report.ksn);
        FUZZ_CHECK(matched == 0 || matched == 1);
        // A matching line always has a readable KSN of the same initial key.
        if (matched == 0) {
            FUZZ_CHECK(parsed == 0 && compare_iksn(held, report.ksn) == 0);
        }
    }
    return 0;
}
