// The command line any local user hands a set-user-ID root program: which row of the table it
// picks (no handler runs), the acquirer ID, and the destination path rules.
#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "base/path_rules.hpp"
#include "front/commands.hpp"
#include "fuzz_check.hpp"
#include "keys/acquirer.hpp"

namespace {

// Every option and the number of parameters after it, as the manual page gives them: written out
// here, so that the table and its lookup are checked against something they did not make.
struct Expected {
    std::string_view option;
    std::size_t params;
};
constexpr Expected expected_rows[] = {
    {"--authenticate", 0},       {"--install-cert-check", 1}, {"--install-cert", 1},
    {"--install-image-check", 1}, {"--install-image", 1},      {"--install-check", 2},
    {"--install", 2},            {"--remove", 1},             {"--rename", 2},
    {"--update-os", 1},          {"--make-factory", 0},       {"--make-restore", 0},
    {"--wipe", 0},               {"--mount-msd", 0},          {"--umount-msd", 0},
    {"--init-keys", 0},          {"--install-kbpk-check", 2}, {"--install-kbpk", 2},
    {"--remove-kbpk", 1},        {"--update-kbpk-pci-pin", 2}, {"--verify-kbpk-pci-pin", 1},
    {"--install-key-check", 3},  {"--install-key", 3},        {"--x509-csr", 0},
    {"--x509-generate", 0},      {"--store-rate-limit", 0},   {"--update-ksn", 0},
    {"--store-dmesg", 0},
};

bool expected_command(const std::vector<std::string>& args) {
    return args.size() >= 2 && std::any_of(std::begin(expected_rows), std::end(expected_rows),
                                            [&](const Expected& e) {
                                                return e.option == args[1] &&
                                                       e.params == args.size() - 2;
                                            });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Arguments separated by zero bytes, as the kernel lays them out.
    std::vector<std::string> args{"orvin-auth"};
    for (std::string_view rest = fuzz_text(data, size); !rest.empty();) {
        const auto [arg, tail] = fuzz_cut(rest, '\0');
        args.emplace_back(arg);
        rest = tail;
    }
    std::vector<char*> argv;
    for (std::string& a : args) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    const int argc = static_cast<int>(args.size());

    // A command runs exactly for an option it has with the parameters it takes, and its handler
    // is then handed every one of them.
    FUZZ_CHECK(commands().size() == std::size(expected_rows));
    const CommandEntry* row = find_command(argc, argv.data());
    FUZZ_CHECK((row != nullptr) == expected_command(args));
    if (row != nullptr) {
        FUZZ_CHECK(row->option == args[1] && row->param_count == args.size() - 2);
    }

    for (std::size_t i = 1; i < args.size(); ++i) {
        const char* text = args[i].c_str();
        const auto root = acquirer_id_parse(text, 0);
        const auto user = acquirer_id_parse(text, 1000);
        FUZZ_CHECK(!root || (*root >= 0 && *root <= acquirer_max));
        FUZZ_CHECK(!user || (*user >= 1 && *user <= acquirer_max));
        FUZZ_CHECK(!user || user == root);

        if (i + 1 < args.size()) {
            const std::string full = install_full_path(args[i], args[i + 1]);
            FUZZ_CHECK(full.starts_with(args[i + 1]));
            // What passes the component rule has no ".." left to climb out with.
            if (!path_has_bad_component(full)) {
                FUZZ_CHECK(full.find("/../") == std::string::npos && !full.starts_with("../") &&
                           full != "..");
            }
        }
    }
    return 0;
}
