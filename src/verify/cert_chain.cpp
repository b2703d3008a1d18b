// Certificate trust chains, and reading the common name that gives a certificate its role.
#include "verify/cert_chain.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <optional>

#include <openssl/err.h>
#include <openssl/pem.h>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/paths.hpp"
#include "base/shared.hpp"
#include "verify/x509_name.hpp"

namespace {

// The stored intermediates that join every verification while they are present.
struct Intermediate {
    const char* path;
    const char* cn;
};
constexpr Intermediate intermediates[] = {
    {paths::prod_sign_cert, "prod-sign"},
    {paths::keysign_main_user_cert, "keysign-main-user"},
};

UniqueFd open_cert(const char* path, OpenAs who) {
    if (who == OpenAs::caller) {
        return caller_open(path, O_RDONLY);
    }
    return UniqueFd(::open(path, O_RDONLY | O_CLOEXEC));
}

const char* default_anchor() {
    return orvin_rki_ca != 0 ? paths::anchor_rki : paths::anchor_bundle;
}

// Which trust anchor a certificate's names call for.
enum class AnchorChoice { current, bundle, bundle_for_the_run };

AnchorChoice anchor_choice(const X509* cert) {
    if (cert == nullptr) {
        return AnchorChoice::current;
    }
    const std::optional<std::string> issuer = x509_issuer_cn(cert);
    const std::optional<std::string> subject = x509_subject_cn(cert);
    if (!issuer || !subject) {
        return AnchorChoice::current;
    }
    // The application user's and the tamper service's certificates always chain to the bundle.
    if (*subject == "main-user" || *subject == "detamper") {
        return AnchorChoice::bundle;
    }
    if (*issuer == "KeySigning" && *subject == "prod-sign") {
        return AnchorChoice::bundle_for_the_run;
    }
    return AnchorChoice::current;
}

const char* anchor_file(AnchorChoice choice) {
    return choice == AnchorChoice::current ? default_anchor() : paths::anchor_bundle;
}

// A store holding the anchor file, and with the bundle the library's default locations too.
Result<X509StorePtr> build_store(const char* anchor) {
    ERR_clear_error();
    X509StorePtr store(X509_STORE_new());
    if (!store) {
        std::puts("FATAL: OpenSSL failure: X509_STORE_new.");
        return ST_FAILURE;
    }
    if (X509_STORE_load_file(store.get(), anchor) != 1) {
        std::puts("FATAL: OpenSSL failure: X509_STORE_load_locations.");
        return ST_FAILURE;
    }
    if (std::strcmp(anchor, paths::anchor_bundle) == 0 &&
        X509_STORE_set_default_paths(store.get()) != 1) {
        std::puts("FATAL: OpenSSL failure: X509_STORE_set_default_paths.");
        return ST_FAILURE;
    }
    return store;
}

// The identity of a stored file; replacing or rewriting it changes it.
struct FileStamp {
    dev_t dev = 0;
    ino_t ino = 0;
    off_t size = 0;
    timespec mtime{};
    timespec ctime{};

    bool operator==(const FileStamp& o) const {
        return dev == o.dev && ino == o.ino && size == o.size && mtime.tv_sec == o.mtime.tv_sec &&
               mtime.tv_nsec == o.mtime.tv_nsec && ctime.tv_sec == o.ctime.tv_sec &&
               ctime.tv_nsec == o.ctime.tv_nsec;
    }
};

// What one stored intermediate gives every verification while it is present, read once per run
// for as long as the file stays the same. Its message is printed again by every verification
// that meets it, as if it were read each time.
struct LoadedIntermediate {
    bool cached = false;
    FileStamp stamp;
    ExitStatus status = ST_OK;
    const char* message = nullptr;
    X509Ptr cert;
    bool joins = false;  // the common name is the expected one: the store takes it
};

LoadedIntermediate load_intermediate(const Intermediate& i) {
    LoadedIntermediate out;
    Result<X509Ptr> file = cert_read_file(i.path, OpenAs::root);
    if (file.status() == ST_CERT_UNREADABLE) {
        out.status = file.status();
        out.message = "FATAL: Failed to open certificate file.";
        return out;
    }
    if (file.status() != ST_OK) {
        out.status = file.status();
        return out;
    }
    const std::optional<std::string> subject = x509_subject_cn(file->get());
    if (!subject) {
        out.status = ST_FAILURE;
        out.message = "No common name found in certificate file.";
        return out;
    }
    out.joins = *subject == i.cn;
    out.cert = std::move(*file);
    return out;
}

// The intermediate as it is now: nothing when absent, else its cached reading while the file
// keeps its identity.
const LoadedIntermediate* current_intermediate(const Intermediate& i, LoadedIntermediate& cache) {
    if (access(i.path, F_OK) != 0) {
        return nullptr;
    }
    struct stat st {};
    if (stat(i.path, &st) != 0) {
        cache = load_intermediate(i);
        return &cache;
    }
    const FileStamp stamp{st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
    if (!cache.cached || !(cache.stamp == stamp)) {
        cache = load_intermediate(i);
        cache.cached = cache.status != ST_CERT_UNREADABLE;
        cache.stamp = stamp;
    }
    return &cache;
}

constexpr std::size_t intermediate_count = std::size(intermediates);
using Joined = std::array<const LoadedIntermediate*, intermediate_count>;

// A store built for one anchor and the intermediates that joined it, kept for the run: building
// it (loading the anchor file and the library's default locations) costs more than a
// verification. It is built again when the intermediates present change.
struct AnchorStore {
    const char* anchor = nullptr;
    X509StorePtr store;
    // Held, so that a certificate read again later cannot reuse the address of one added here.
    std::array<X509Ptr, intermediate_count> added;
};

struct ChainCache {
    std::array<LoadedIntermediate, intermediate_count> intermediates;
    std::array<AnchorStore, 2> stores;
};

ChainCache& chain_cache() {
    static ChainCache cache;
    return cache;
}

// A store ready for one verification, and which joining intermediates it refused.
struct ChosenStore {
    X509_STORE* store = nullptr;
    std::array<bool, intermediate_count> refused{};
};

// The store for anchor with the joining intermediates added. A failed build prints its message and
// is not kept; an intermediate the store refuses is reported when the verification reaches it.
Result<ChosenStore> store_for(const char* anchor, const Joined& joined) {
    std::array<const X509*, intermediate_count> wanted{};
    for (std::size_t k = 0; k < intermediate_count; ++k) {
        if (joined[k] != nullptr && joined[k]->joins) {
            wanted[k] = joined[k]->cert.get();
        }
    }
    AnchorStore& slot = chain_cache().stores[std::strcmp(anchor, paths::anchor_bundle) == 0 ? 0 : 1];
    bool same = slot.store && slot.anchor == anchor;
    for (std::size_t k = 0; same && k < intermediate_count; ++k) {
        same = slot.added[k].get() == wanted[k];
    }
    ChosenStore chosen;
    if (same) {
        chosen.store = slot.store.get();
        return chosen;
    }
    slot = AnchorStore{};
    Result<X509StorePtr> built = build_store(anchor);
    if (!built.ok()) {
        return built.status();
    }
    slot.store = std::move(*built);
    bool complete = true;
    for (std::size_t k = 0; k < intermediate_count; ++k) {
        auto* cert = const_cast<X509*>(wanted[k]);
        if (cert == nullptr) {
            continue;
        }
        ERR_clear_error();
        if (X509_STORE_add_cert(slot.store.get(), cert) != 1) {
            chosen.refused[k] = true;
            complete = false;
        } else if (X509_up_ref(cert) == 1) {
            slot.added[k].reset(cert);
        }
    }
    ERR_clear_error();
    chosen.store = slot.store.get();
    // An incomplete store serves this verification only; the next one builds again.
    slot.anchor = complete ? anchor : nullptr;
    return chosen;
}

// A damaged intermediate fails every verification while it is present, so that a broken store
// is noticed (and swept) rather than silently trusted less.
ExitStatus report_intermediates(const Joined& joined,
                                const std::array<bool, intermediate_count>& refused) {
    ExitStatus status = ST_OK;
    for (std::size_t k = 0; k < intermediate_count; ++k) {
        const LoadedIntermediate* i = joined[k];
        if (i == nullptr) {
            continue;
        }
        if (i->message != nullptr) {
            std::puts(i->message);
        }
        if (i->status != ST_OK) {
            status = i->status;
        } else if (refused[k]) {
            std::puts("FATAL: OpenSSL failure: X509_STORE_add_cert.");
            status = ST_FAILURE;
        }
    }
    return status;
}

ExitStatus verify_chain(X509_STORE* store, X509* cert, ExitStatus status) {
    ERR_clear_error();
    X509StoreCtxPtr ctx(X509_STORE_CTX_new());
    if (!ctx || X509_STORE_CTX_init(ctx.get(), store, cert, nullptr) != 1) {
        std::puts("FATAL: OpenSSL failure: X509_STORE_CTX_init.");
        return ST_FAILURE;
    }
    if (status != ST_OK) {
        return status;
    }
    const int verified = X509_verify_cert(ctx.get());
    ERR_clear_error();
    return verified == 1 ? ST_OK : ST_CERT_INVALID;
}

void print_open_failure() {
    std::puts("FATAL: Failed to open certificate file.");
}

}  // namespace

Result<X509Ptr> cert_read_file(const char* path, OpenAs who) {
    UniqueFd fd = open_cert(path, who);
    if (!fd) {
        return ST_CERT_UNREADABLE;
    }
    ERR_clear_error();
    // The PEM reader asks for a line at a time: a buffer under it turns a byte per system call
    // into a few reads per file, and it still reads no further than the first certificate needs.
    BioPtr bio(BIO_new(BIO_f_buffer()));
    BIO* fd_bio = BIO_new_fd(fd.get(), BIO_NOCLOSE);
    if (fd_bio == nullptr || !bio) {
        BIO_free(fd_bio);
        bio.reset();
    } else {
        BIO_push(bio.get(), fd_bio);
    }
    X509Ptr cert(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    ERR_clear_error();
    if (!cert) {
        return ST_CERT_INVALID;
    }
    return cert;
}

const char* cert_verify_ca_file(const X509* cert) {
    return anchor_file(anchor_choice(cert));
}

Result<X509Ptr> cert_verify(const char* path, OpenAs who) {
    Result<X509Ptr> file = cert_read_file(path, who);
    const AnchorChoice choice = anchor_choice(file.ok() ? file->get() : nullptr);
    // Once a production-signing certificate from "KeySigning" is met, the bundle is the anchor
    // for the rest of the run, the KBPK requests' trust-anchor flag included.
    if (choice == AnchorChoice::bundle_for_the_run) {
        orvin_rki_ca = 0;
    }
    const char* anchor = anchor_file(choice);
    ChainCache& cache = chain_cache();
    Joined joined{};
    for (std::size_t k = 0; k < intermediate_count; ++k) {
        joined[k] = current_intermediate(intermediates[k], cache.intermediates[k]);
    }
    const Result<ChosenStore> chosen = store_for(anchor, joined);
    if (!chosen.ok()) {
        return chosen.status();
    }
    if (file.status() == ST_CERT_UNREADABLE) {
        print_open_failure();
        return file.status();
    }
    if (file.status() != ST_OK) {
        return file.status();
    }
    const ExitStatus status =
        verify_chain(chosen->store, file->get(), report_intermediates(joined, chosen->refused));
    if (status != ST_OK) {
        return status;
    }
    return file;
}

Result<X509Ptr> cert_read_reported(const char* path, OpenAs who) {
    Result<X509Ptr> file = cert_read_file(path, who);
    if (file.status() == ST_CERT_UNREADABLE) {
        print_open_failure();
    } else if (!file.ok()) {
        std::puts("Failed to read certificate file.");
    }
    return file;
}

Result<std::string> cert_read_cn(const char* path, OpenAs who) {
    const Result<X509Ptr> file = cert_read_reported(path, who);
    if (!file.ok()) {
        return file.status();
    }
    return cert_cn(file->get());
}

Result<std::string> cert_cn(const X509* cert) {
    std::optional<std::string> subject = x509_subject_cn(cert);
    if (!subject) {
        std::puts("No common name found in certificate file.");
        return ST_CERT_INVALID;
    }
    return std::move(*subject);
}
