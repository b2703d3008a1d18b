// The command line any local user hands a set-user-ID root program: which row of the table it
// picks (no handler runs), the acquirer ID, and the destination path rules.
#include <cstring>
#include <string>
#include <vector>

#include "base/path_rules.hpp"
#include "front/commands.hpp"
#include "fuzz_check.hpp"
#include "keys/acquirer.hpp"

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

    // A handler only ever sees the argument count its row allows.
    if (const CommandEntry* row = find_command(argc, argv.data())) {
        FUZZ_CHECK(std::strcmp(row->option, argv[1]) == 0);
        FUZZ_CHECK(row->min_args <= argc && argc <= row->max_args && row->handler != nullptr);
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
