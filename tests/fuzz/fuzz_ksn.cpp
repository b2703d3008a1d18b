// The KSN report the device writes, and the lines of the KSN log, which survive restarts and may be
// damaged.
#include <optional>
#include <span>
#include <string>

#include "fuzz_check.hpp"
#include "state/ksn.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The report: the answer echoes whatever KSN the log held, and an entry made from a report
    // reads back as the same key and KSN.
    const KsnReport report = ksn_parse_report(std::span<const std::uint8_t>(data, size));
    const std::string entry = create_ksn_entry(report.key_index, report.ksn);
    FUZZ_CHECK(entry_matches(entry, report.key_index, report.ksn));
    const std::optional<Ksn> back = ksn_from_entry(entry);
    FUZZ_CHECK(back && *back == report.ksn);
    const KsnAnswer answer = ksn_encode_answer(ksn::status_matched, report.ksn);
    FUZZ_CHECK(answer[0] == ksn::status_matched);

    // Each line of the input as a log line, judged against the report's key and KSN.
    const std::string log(reinterpret_cast<const char*>(data), size);
    for (std::size_t start = 0; start < log.size();) {
        std::size_t end = log.find('\n', start);
        end = end == std::string::npos ? log.size() : end + 1;
        const std::string line = log.substr(start, end - start);
        start = end;
        const std::optional<Ksn> held = ksn_from_entry(line);
        // A matching line always has a readable KSN of the same initial key.
        if (entry_matches(line, report.key_index, report.ksn)) {
            FUZZ_CHECK(held && same_iksn(*held, report.ksn));
        }
    }
    return 0;
}
