// The key hash registry as read from disk: any length, any bytes.
#include <algorithm>
#include <span>

#include "fuzz_check.hpp"
#include "keys/registry.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Two digests, then the file.
    if (size < 2 * sapi::digest_size) {
        return 0;
    }
    sapi::KeyDigest key{};
    sapi::KeyDigest second{};
    std::copy_n(data, key.size(), key.begin());
    std::copy_n(data + key.size(), second.size(), second.begin());
    const std::span<const std::uint8_t> file(data + 2 * sapi::digest_size,
                                             size - 2 * sapi::digest_size);

    for (const RegistryKind kind : {RegistryKind::paired, RegistryKind::single}) {
        const RegistryOutcome whole = registry_scan(file, kind, key, second);

        // After appending its record, the key is known: a re-installation in the paired file.
        const std::vector<std::uint8_t> record = registry_record(kind, key, second);
        // A record is the key digest, and in the paired file the second digest after it.
        FUZZ_CHECK(record.size() == (kind == RegistryKind::paired ? 64U : 32U));
        FUZZ_CHECK(std::equal(key.begin(), key.end(), record.begin()));
        if (whole == RegistryOutcome::append && file.size() % record.size() == 0) {
            std::vector<std::uint8_t> grown(file.begin(), file.end());
            grown.insert(grown.end(), record.begin(), record.end());
            const RegistryOutcome again = registry_scan(grown, kind, key, second);
            FUZZ_CHECK(again == (kind == RegistryKind::paired ? RegistryOutcome::reinstall
                                                              : RegistryOutcome::duplicate));
        }
    }
    return 0;
}
