// The two terminal-certificate commands: a certificate request and a certificate for a key the
// security processor holds, each read from and answered through "/proc/sapi".
#include <optional>
#include <string>

#include "base/caller.hpp"
#include "base/result.hpp"
#include "device/sapi.hpp"
#include "system/tools.hpp"
#include "x509/handlers.hpp"
#include "x509/rsa_keys.hpp"
#include "x509/terminal_record.hpp"
#include "x509/x509_build.hpp"

namespace {

constexpr const char* serial_key = "Serial";
constexpr std::size_t serial_length = 10;

// The record the device left in raw, taken apart; 9 without a message when it cannot be read or a
// length leads past it. The record's key block points into raw.
Result<TerminalRecord> read_record(ProcRecord& raw, ProcReads reads, RecordLayout layout) {
    Result<ProcRecord> proc = sapi_proc_read(reads);
    if (!proc.ok()) {
        return proc.status();
    }
    raw = *proc;
    std::optional<TerminalRecord> record = x509_record_parse(raw.bytes, layout);
    if (!record) {
        return ST_FAILURE;
    }
    return std::move(*record);
}

// The key usage text, or 9 without a message when it does not fit (D12).
Result<std::string> key_usage_text(const TerminalRecord& record) {
    std::optional<std::string> prepared = x509_key_usage_text(record.key_usage);
    if (!prepared) {
        return ST_FAILURE;
    }
    return std::move(*prepared);
}

// The terminal's serial number: the first line nvram prints, less its last character, which must
// leave exactly ten.
Result<std::string> terminal_serial() {
    Result<std::optional<std::string>> line = sys_nvram_get(serial_key);
    if (!line.ok() || !*line) {
        return ST_FAILURE;
    }
    std::string serial = std::move(**line);
    serial.pop_back();
    if (serial.size() != serial_length) {
        return ST_FAILURE;
    }
    return serial;
}

// The result record goes back whole or not at all.
ExitStatus write_result(const ProcRecord& result, std::size_t length) {
    if (length == 0) {
        return ST_FAILURE;
    }
    return sapi_proc_write(std::span(result.bytes).first(length));
}

}  // namespace

ExitStatus cmd_x509_csr() {
    if (ExitStatus st = caller_check(CallerRule::root_only); st != ST_OK) {
        return st;
    }
    ProcRecord raw;
    const Result<TerminalRecord> record = read_record(raw, ProcReads::one, RecordLayout::request);
    if (!record.ok()) {
        return record.status();
    }
    const Result<RsaNumbers> terminal = extract_rsa_key(record->key_block);
    if (!terminal.ok()) {
        return terminal.status();
    }
    const std::string subject = x509_subject_text("", record->common_name, csr_max_cn);
    const Result<std::string> key_usage = key_usage_text(*record);
    if (!key_usage.ok()) {
        return key_usage.status();
    }
    ProcRecord result;
    return write_result(result, x509_csr(result.bytes, *terminal, subject, *key_usage));
}

ExitStatus cmd_x509_generate() {
    if (ExitStatus st = caller_check(CallerRule::root_only); st != ST_OK) {
        return st;
    }
    ProcRecord raw;
    const Result<TerminalRecord> record =
        read_record(raw, ProcReads::two, RecordLayout::generation);
    if (!record.ok()) {
        return record.status();
    }
    const Result<RsaNumbers> key = extract_rsa_key(record->key_block);
    if (!key.ok()) {
        return key.status();
    }
    const Result<RsaNumbers> dummy = x509_dummy_key(key->n.get());
    if (!dummy.ok()) {
        return dummy.status();
    }
    const Result<std::string> serial = terminal_serial();
    if (!serial.ok()) {
        return serial.status();
    }
    const std::string subject = x509_subject_text(*serial, record->common_name, generate_max_cn);
    const Result<std::string> key_usage = key_usage_text(*record);
    if (!key_usage.ok()) {
        return key_usage.status();
    }
    ProcRecord result;
    return write_result(result, x509_generate(result.bytes, *key, *dummy, subject, *key_usage));
}
