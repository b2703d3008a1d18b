// The records the security processor leaves for certificate requests and certificates, and the
// subject and key usage texts made from them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// The fixed part of every subject the terminal puts its name to; the common name follows it.
inline constexpr std::string_view x509_subject_prefix =
    "/C=GB/ST=Hallowmereshire/L=Thornwickley/O=Orvin Systems Ltd/OU=Terminal/CN=";

// A request record carries its public key block at offset 4; a generation record also carries a
// trailing field's length there, which moves the block to offset 6.
enum class RecordLayout { request, generation };

// The fields of a record, texts exactly as long as their length bytes say. key_block runs to the
// end of the record buffer: its own lengths say how much of it is the key.
struct TerminalRecord {
    std::span<const std::uint8_t> key_block;
    std::string common_name;
    std::string key_usage;
};

// Nothing when a length field leads past the buffer.
[[nodiscard]] std::optional<TerminalRecord> x509_record_parse(std::span<const std::uint8_t> buffer,
                                                              RecordLayout layout);

// The subject text: the prefix, then lead (the serial number, or nothing), then the common name
// when it fits the 256-byte subject with room to spare (max_cn bytes), else nothing. Read as the C
// text it stands for, so it ends at a zero byte.
[[nodiscard]] std::string x509_subject_text(std::string_view lead, const std::string& common_name,
                                            std::size_t max_cn);

// Longest common name each kind of subject keeps.
inline constexpr std::size_t csr_max_cn = 180;
inline constexpr std::size_t generate_max_cn = 170;

// The key usage text: "keyAgreement," goes before a text that begins with "encipherOnly" or
// "decipherOnly", since those usages mean nothing without it. Nothing when the result exceeds 255
// characters (D12).
[[nodiscard]] std::optional<std::string> x509_key_usage_text(const std::string& record_text);

// One subject entry: its short field name and its text.
struct SubjectEntry {
    std::string field;
    std::string value;

    bool operator==(const SubjectEntry&) const = default;
};

// Splits a subject text at every "/" and takes the entries it names, in order. The tests on a
// piece follow each other, each on what the earlier ones left, so "C=ST=x" names C "ST=x" and
// ST "x"; a piece that names no known field adds nothing.
[[nodiscard]] std::vector<SubjectEntry> x509_subject_parse(std::string_view text);
