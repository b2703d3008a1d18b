// The DUKPT KSN log: the device's report, the log's lines, the answer, and the log's rewrite.
#include "state/ksn.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/hex.hpp"
#include "base/io.hpp"
#include "base/paths.hpp"
#include "device/sapi.hpp"
#include "state/handlers.hpp"
#include "system/state_file.hpp"

namespace {

constexpr std::size_t ksn_hex_size = 2 * ksn::ksn_size;

std::uint8_t byte_at(std::span<const std::uint8_t> record, std::size_t offset) {
    return offset < record.size() ? record[offset] : 0;
}

// Each line keeps its line end; the last one may have none.
std::vector<std::string> split_lines(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = text.find('\n', start);
        end = end == std::string::npos ? text.size() : end + 1;
        lines.push_back(text.substr(start, end - start));
        start = end;
    }
    return lines;
}

// The lines of the log with the entry in place of every line of the same key and initial key, or
// appended when there was none.
std::string ksn_rewrite(const std::string& log, const std::string& entry, int key_index,
                        const Ksn& ksn, Ksn& old_ksn, std::uint8_t* status) {
    std::string out;
    bool matched = false;
    for (const std::string& line : split_lines(log)) {
        std::printf("New Line %s\n", line.c_str());
        const std::optional<Ksn> held = matching_entry(line, key_index, ksn);
        if (!held) {
            out += line;
            continue;
        }
        old_ksn = *held;
        out += entry;
        *status = ksn::status_matched;
        matched = true;
    }
    if (!matched) {
        out += entry;
    }
    return out;
}

}  // namespace

int ksn_key_index(std::uint8_t low, std::uint8_t high) {
    return static_cast<std::int8_t>(low) + 256 * static_cast<std::int8_t>(high);
}

KsnReport ksn_parse_report(std::span<const std::uint8_t> record) {
    KsnReport report;
    report.key_index = ksn_key_index(byte_at(record, ksn::report_index_low),
                                     byte_at(record, ksn::report_index_high));
    for (std::size_t i = 0; i < ksn::ksn_size; ++i) {
        report.ksn[i] = byte_at(record, ksn::report_ksn_offset + i);
    }
    return report;
}

KsnAnswer ksn_encode_answer(std::uint8_t status, const Ksn& old_ksn) {
    KsnAnswer answer{};
    answer[ksn::answer_status_offset] = status;
    for (std::size_t i = 0; i < ksn::ksn_size; ++i) {
        answer[ksn::answer_ksn_offset + i] = old_ksn[i];
    }
    return answer;
}

std::string create_ksn_entry(int key_index, const Ksn& ksn) {
    std::array<std::uint8_t, ksn_hex_size> digits{};
    std::copy(ksn.begin(), ksn.end(), digits.begin());
    bin2hex(digits.data(), digits.size());
    return std::to_string(key_index) + ":" + std::string(digits.begin(), digits.end()) + "\n";
}

bool same_iksn(const Ksn& a, const Ksn& b) {
    for (std::size_t i = 0; i < ksn::iksn_whole_bytes; ++i) {
        if (a[i] != b[i]) {
            return false;
        }
    }
    const std::size_t last = ksn::iksn_whole_bytes;
    return (a[last] & ksn::iksn_byte7_mask) == (b[last] & ksn::iksn_byte7_mask);
}

std::optional<Ksn> ksn_from_entry(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || line.size() - colon - 1 < ksn_hex_size) {
        return std::nullopt;
    }
    std::array<std::uint8_t, ksn_hex_size> digits{};
    const std::string_view text = line.substr(colon + 1, ksn_hex_size);
    std::copy(text.begin(), text.end(), digits.begin());
    if (!hex2bin(digits.data(), digits.size())) {
        return std::nullopt;
    }
    Ksn ksn{};
    std::copy_n(digits.begin(), ksn.size(), ksn.begin());
    return ksn;
}

std::optional<Ksn> matching_entry(const std::string& line, int key_index, const Ksn& ksn) {
    // As strtol reads it: leading blanks and a sign are part of the number.
    errno = 0;
    char* end = nullptr;
    const long number = std::strtol(line.c_str(), &end, 10);
    if (end == line.c_str() || errno == ERANGE || number < INT_MIN || number > INT_MAX ||
        *end != ':') {
        std::printf("Corrupt file entry: %s\n", line.c_str());
        return std::nullopt;
    }
    if (number != key_index) {
        return std::nullopt;
    }
    const std::optional<Ksn> held = ksn_from_entry(line);
    if (!held) {
        std::fputs("Corrupt file data", stdout);
        return std::nullopt;
    }
    if (!same_iksn(ksn, *held)) {
        return std::nullopt;
    }
    return held;
}

ExitStatus update_ksn_data(int key_index, const Ksn& ksn, Ksn& old_ksn, std::uint8_t* status,
                           const char* log_path) {
    const std::string entry = create_ksn_entry(key_index, ksn);
    if (status == nullptr || log_path == nullptr) {
        std::fputs("Error invalid input parameters", stdout);
        return ST_FAILURE;
    }
    if (std::strlen(log_path) > ksn::log_path_max) {
        std::fputs("Error input string too long", stdout);
        return ST_FAILURE;
    }
    // The new log is a fresh root-owned file beside the old one (D19); it reaches the disk and
    // then one rename replaces the old log, so no reader or restart ever finds it missing or half
    // written.
    StateFile temp(log_path, state_file_mode);
    if (!temp.valid()) {
        std::printf("Error opening temp file, Error %i\n", errno);
        return ST_FAILURE;
    }
    // Whatever is at the name and is not the program's own log (a link, a FIFO, another user's
    // file) holds no history: the update starts a new log over it.
    const Result<StateBytes> held = state_file_read(log_path);
    if (!held.ok()) {
        std::printf("Error opening ksn info file, Error %i\n", errno);
        return ST_FAILURE;
    }
    const std::string log = *held ? std::string((*held)->begin(), (*held)->end()) : std::string();
    const std::string rewritten = ksn_rewrite(log, entry, key_index, ksn, old_ksn, status);
    if (write_full(temp.fd(), rewritten.data(), rewritten.size()) != rewritten.size()) {
        return ST_FAILURE;
    }
    return temp.commit() ? ST_OK : ST_FAILURE;
}

ExitStatus cmd_update_dukpt_ksn() {
    if (ExitStatus st = caller_check(CallerRule::root_only); st != ST_OK) {
        return st;
    }
    const Result<ProcRecord> record = sapi_proc_read();
    if (!record.ok()) {
        return record.status();
    }
    const KsnReport report = ksn_parse_report(std::span(record->bytes).first(record->length));
    // Without a match the device gets status 0 and ten zero bytes (D13).
    Ksn old_ksn{};
    std::uint8_t status = ksn::status_unmatched;
    if (update_ksn_data(report.key_index, report.ksn, old_ksn, &status, paths::ksn_log) != ST_OK) {
        return ST_FAILURE;
    }
    if (sapi_proc_write(ksn_encode_answer(status, old_ksn)) != ST_OK) {
        return ST_FAILURE;
    }
    return ST_OK;
}
