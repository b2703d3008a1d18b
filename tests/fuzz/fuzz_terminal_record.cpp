// The records the security processor leaves for certificate requests and certificates: length
// fields, the public key block inside them, and the subject and key usage texts made from them.
#include <openssl/bn.h>
#include <openssl/err.h>

#include "fuzz_check.hpp"
#include "x509/rsa_keys.hpp"
#include "x509/terminal_record.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> buffer(data, size);
    for (const RecordLayout layout : {RecordLayout::request, RecordLayout::generation}) {
        const auto record = x509_record_parse(buffer, layout);
        if (!record) {
            continue;
        }
        // The key block is the rest of the buffer, never beyond it.
        FUZZ_CHECK(record->key_block.data() >= data &&
                   record->key_block.data() + record->key_block.size() == data + size);

        if (const Result<RsaNumbers> key = extract_rsa_key(record->key_block); key.ok()) {
            FUZZ_CHECK(key->n && key->e);
            FUZZ_CHECK(static_cast<std::size_t>(BN_num_bytes(key->n.get())) <=
                       record->key_block.size());
        }
        ERR_clear_error();

        for (const std::size_t max_cn : {csr_max_cn, generate_max_cn}) {
            const std::string subject = x509_subject_text("", record->common_name, max_cn);
            FUZZ_CHECK(subject.size() < 256 && subject.find('\0') == std::string::npos);
            FUZZ_CHECK(subject.starts_with(x509_subject_prefix.substr(
                0, std::min(subject.size(), x509_subject_prefix.size()))));
            for (const SubjectEntry& entry : x509_subject_parse(subject)) {
                FUZZ_CHECK(!entry.field.empty());
            }
        }
        if (const auto usage = x509_key_usage_text(record->key_usage)) {
            FUZZ_CHECK(usage->size() < 256 && usage->find('\0') == std::string::npos);
        }
    }

    // The subject text on its own, as a common name may carry any "/"-separated pieces.
    const std::string_view text = fuzz_text(data, size);
    for (const SubjectEntry& entry : x509_subject_parse(text)) {
        FUZZ_CHECK(text.find(entry.value) != std::string_view::npos);
        FUZZ_CHECK(entry.value.find('/') == std::string::npos);
    }
    return 0;
}
