// The KSN report the device writes, and the lines of the KSN log, which survive restarts and may be
// damaged.
#include <algorithm>
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
    FUZZ_CHECK(matching_entry(entry, report.key_index, report.ksn).has_value());
    const std::optional<Ksn> back = ksn_from_entry(entry);
    FUZZ_CHECK(back && *back == report.ksn);
    const KsnAnswer answer = ksn_encode_answer(ksn::status_matched, report.ksn);
    FUZZ_CHECK(answer[0] == ksn::status_matched);

    // Each line of the input as a log line: one that matches the report's key always has a
    // readable KSN of the same initial key.
    for (std::string_view rest = fuzz_text(data, size); !rest.empty();) {
        // A line keeps its line end, as the log's reader sees it.
        const std::size_t end = std::min(rest.find('\n'), rest.size() - 1) + 1;
        const std::string line(rest.substr(0, end));
        rest.remove_prefix(end);
        const std::optional<Ksn> held = ksn_from_entry(line);
        if (const std::optional<Ksn> matched = matching_entry(line, report.key_index, report.ksn)) {
            FUZZ_CHECK(held && *held == *matched && same_iksn(*held, report.ksn));
        }
    }
    return 0;
}
