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

// Which trust anchor a certificate's names call for.
enum class AnchorChoice { run_anchor, bundle, bundle_for_the_run };

AnchorChoice anchor_choice(const X509* cert) {
    if (cert == nullptr) {
        return AnchorChoice::run_anchor;
    }
    const std::optional<std::string> issuer = x509_issuer_cn(cert);
    const std::optional<std::string> subject = x509_subject_cn(cert);
    if (!issuer || !subject) {
        return AnchorChoice::run_anchor;
    }
    // The application user's and the tamper service's certificates always chain to the bundle.
    if (*subject == "main-user" || *subject == "detamper") {
        return AnchorChoice::bundle;
    }
    if (*issuer == "KeySigning" && *subject == "prod-sign") {
        return AnchorChoice::bundle_for_the_run;
    }
    return AnchorChoice::run_anchor;
}

const char* anchor_file(AnchorChoice choice, Anchor run_anchor) {
    if (choice == AnchorChoice::run_anchor && run_anchor == Anchor::rki) {
        return paths::anchor_rki;
    }
    return paths::anchor_bundle;
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

// What reading one stored intermediate found.
enum class Damage { none, unopenable, no_certificate, no_common_name };

// One stored intermediate as read: a good reading is kept while the file keeps its identity, a
// damaged one is read again by every verification that meets it.
struct LoadedIntermediate {
    std::optional<FileStamp> stamp;
    Damage damage = Damage::none;
    X509Ptr cert;
    bool joins = false;  // the common name is the expected one: the store takes it
};

LoadedIntermediate load_intermediate(const Intermediate& i) {
    LoadedIntermediate out;
    Result<X509Ptr> file = cert_read_file(i.path, OpenAs::root);
    if (!file.ok()) {
        out.damage =
            file.status() == ST_CERT_UNREADABLE ? Damage::unopenable : Damage::no_certificate;
        return out;
    }
    const std::optional<std::string> subject = x509_subject_cn(file->get());
    if (!subject) {
        out.damage = Damage::no_common_name;
        return out;
    }
    out.joins = *subject == i.cn;
    out.cert = std::move(*file);
    return out;
}

// The intermediate as it is now: nothing when absent, else its reading, kept while good and while
// the file keeps its identity.
const LoadedIntermediate* current_intermediate(const Intermediate& i, LoadedIntermediate& held) {
    if (access(i.path, F_OK) != 0) {
        return nullptr;
    }
    struct stat st {};
    std::optional<FileStamp> stamp;
    if (stat(i.path, &st) == 0) {
        stamp = FileStamp{st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
    }
    if (!stamp || !held.stamp || !(*held.stamp == *stamp) || held.damage != Damage::none) {
        held = load_intermediate(i);
        held.stamp = held.damage == Damage::none ? stamp : std::nullopt;
    }
    return &held;
}

constexpr std::size_t intermediate_count = std::size(intermediates);
using Joined = std::array<const LoadedIntermediate*, intermediate_count>;

// A store built for one anchor and the intermediates that joined it.
struct AnchorStore {
    const char* anchor = nullptr;
    X509StorePtr store;
    // Held, so that a certificate read again later cannot reuse the address of one added here.
    std::array<X509Ptr, intermediate_count> added;
};

// A store ready for one verification, and which joining intermediates it refused.
struct ChosenStore {
    X509_STORE* store = nullptr;
    std::array<bool, intermediate_count> refused{};
};

// The certificates of the intermediates that join a store: present, read and with their own name.
std::array<const X509*, intermediate_count> joining(const Joined& joined) {
    std::array<const X509*, intermediate_count> wanted{};
    for (std::size_t k = 0; k < intermediate_count; ++k) {
        if (joined[k] != nullptr && joined[k]->joins) {
            wanted[k] = joined[k]->cert.get();
        }
    }
    return wanted;
}

// Whether slot already holds the store for anchor with exactly these intermediates.
bool holds(const AnchorStore& slot, const char* anchor,
           const std::array<const X509*, intermediate_count>& wanted) {
    if (!slot.store || slot.anchor != anchor) {
        return false;
    }
    for (std::size_t k = 0; k < intermediate_count; ++k) {
        if (slot.added[k].get() != wanted[k]) {
            return false;
        }
    }
    return true;
}

// The store for anchor with the joining intermediates added. A failed build prints its message and
// is not kept; an intermediate the store refuses is reported when the verification reaches it.
Result<ChosenStore> store_for(AnchorStore& slot, const char* anchor, const Joined& joined) {
    const std::array<const X509*, intermediate_count> wanted = joining(joined);
    ChosenStore chosen;
    if (holds(slot, anchor, wanted)) {
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

// The message and status of a damaged intermediate; ST_OK for a good one.
ExitStatus report_damage(Damage damage) {
    switch (damage) {
        case Damage::none:
            return ST_OK;
        case Damage::unopenable:
            std::puts("FATAL: Failed to open certificate file.");
            return ST_CERT_UNREADABLE;
        case Damage::no_certificate:
            return ST_CERT_INVALID;
        case Damage::no_common_name:
            std::puts("No common name found in certificate file.");
            return ST_FAILURE;
    }
    return ST_FAILURE;
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
        const ExitStatus damaged = report_damage(i->damage);
        if (damaged != ST_OK) {
            status = damaged;
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

struct ChainStore::State {
    std::array<LoadedIntermediate, intermediate_count> intermediates;
    AnchorStore bundle;
    AnchorStore rki;
};

ChainStore::ChainStore() : state_(std::make_unique<State>()) {}
ChainStore::~ChainStore() = default;
ChainStore::ChainStore(ChainStore&&) noexcept = default;
ChainStore& ChainStore::operator=(ChainStore&&) noexcept = default;

ChainVerdict ChainStore::verify(const char* path, OpenAs who, Anchor run_anchor) {
    Result<X509Ptr> file = cert_read_file(path, who);
    const AnchorChoice choice = anchor_choice(file.ok() ? file->get() : nullptr);
    const char* anchor = anchor_file(choice, run_anchor);
    ChainVerdict verdict{ST_FAILURE, anchor, choice == AnchorChoice::bundle_for_the_run};
    Joined joined{};
    for (std::size_t k = 0; k < intermediate_count; ++k) {
        joined[k] = current_intermediate(intermediates[k], state_->intermediates[k]);
    }
    AnchorStore& slot =
        std::strcmp(anchor, paths::anchor_bundle) == 0 ? state_->bundle : state_->rki;
    const Result<ChosenStore> chosen = store_for(slot, anchor, joined);
    if (!chosen.ok()) {
        verdict.cert = chosen.status();
        return verdict;
    }
    if (file.status() == ST_CERT_UNREADABLE) {
        print_open_failure();
    }
    if (!file.ok()) {
        verdict.cert = file.status();
        return verdict;
    }
    const ExitStatus status =
        verify_chain(chosen->store, file->get(), report_intermediates(joined, chosen->refused));
    verdict.cert = status == ST_OK ? std::move(file) : Result<X509Ptr>(status);
    return verdict;
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
