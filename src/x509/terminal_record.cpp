// Taking apart the security processor's certificate records, and the texts made from them.
#include "x509/terminal_record.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace {

constexpr std::size_t subject_buffer = 256;
constexpr std::size_t key_usage_buffer = 256;
constexpr std::string_view agreement_prefix = "keyAgreement,";

// The texts are used as C text: a zero byte ends them whatever their length field says.
std::string c_text(std::string text) {
    text.resize(std::strlen(text.c_str()));
    return text;
}

// The length-prefixed text at pos, which moves past it; nothing when it leaves the buffer.
std::optional<std::string> take_text(std::span<const std::uint8_t> buffer, std::size_t& pos) {
    if (pos >= buffer.size()) {
        return std::nullopt;
    }
    const std::size_t length = buffer[pos];
    ++pos;
    if (length > buffer.size() - pos) {
        return std::nullopt;
    }
    std::string text(buffer.begin() + static_cast<std::ptrdiff_t>(pos),
                     buffer.begin() + static_cast<std::ptrdiff_t>(pos + length));
    pos += length;
    return text;
}

}  // namespace

std::optional<TerminalRecord> x509_record_parse(std::span<const std::uint8_t> buffer,
                                                RecordLayout layout) {
    const std::size_t key_offset = layout == RecordLayout::request ? 4 : 6;
    if (buffer.size() < key_offset) {
        return std::nullopt;
    }
    const std::size_t key_length = buffer[0] | (static_cast<std::size_t>(buffer[1]) << 8);
    if (key_length > buffer.size() - key_offset) {
        return std::nullopt;
    }
    std::size_t pos = key_offset + key_length;
    // The generation record's trailing field has no use here, so it is not read.
    std::optional<std::string> common_name = take_text(buffer, pos);
    if (!common_name) {
        return std::nullopt;
    }
    std::optional<std::string> key_usage = take_text(buffer, pos);
    if (!key_usage) {
        return std::nullopt;
    }
    TerminalRecord record;
    record.key_block = buffer.subspan(key_offset);
    record.common_name = std::move(*common_name);
    record.key_usage = std::move(*key_usage);
    return record;
}

std::string x509_subject_text(std::string_view lead, const std::string& common_name,
                              std::size_t max_cn) {
    std::string text(x509_subject_prefix);
    text += lead;
    if (common_name.size() <= max_cn) {
        text += common_name;
    }
    // Each caller's lead and limit keep the text within the 255 characters of its buffer; should
    // one not, the text is cut there.
    if (text.size() >= subject_buffer) {
        text.resize(subject_buffer - 1);
    }
    return c_text(std::move(text));
}

std::optional<std::string> x509_key_usage_text(const std::string& record_text) {
    std::string text;
    if (record_text.starts_with("encipherOnly") || record_text.starts_with("decipherOnly")) {
        text = agreement_prefix;
    }
    text += record_text;
    if (text.size() >= key_usage_buffer) {
        return std::nullopt;
    }
    return c_text(std::move(text));
}

std::vector<SubjectEntry> x509_subject_parse(std::string_view text) {
    // Tried in this order on every piece; only the address does not move past its key.
    struct Key {
        std::string_view key;
        std::string_view field;
        bool advance;
    };
    static constexpr std::array<Key, 7> keys{{{"C=", "C", true},
                                              {"ST=", "ST", true},
                                              {"L=", "L", true},
                                              {"O=", "O", true},
                                              {"OU=", "OU", true},
                                              {"CN=", "CN", true},
                                              {"emailAddress=", "emailAddress", false}}};
    std::vector<SubjectEntry> entries;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find('/', start);
        if (end == std::string_view::npos) {
            end = text.size();
        }
        std::string_view piece = text.substr(start, end - start);
        start = end + 1;
        if (piece.empty()) {
            continue;
        }
        piece.remove_prefix(std::min(piece.find_first_not_of(' '), piece.size()));
        for (const Key& k : keys) {
            if (!piece.starts_with(k.key)) {
                continue;
            }
            std::string_view value = piece.substr(k.key.size());
            entries.push_back({std::string(k.field), std::string(value)});
            if (k.advance) {
                piece = value;
            }
        }
    }
    return entries;
}
