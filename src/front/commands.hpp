// The command table: the one place that knows the option words.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <utility>

#include "base/status.hpp"
#include "verify/cert_chain.hpp"

// Whether the usage text lists a command.
enum class Usage { listed, hidden };

// A row as the table calls it: with the run's chain stores and the parameters after the option,
// exactly param_count of them.
struct CommandEntry {
    std::string_view option;
    Usage usage;
    const char* params;  // the parameters as the usage text names them
    std::size_t param_count;
    ExitStatus (*run)(ChainStore& chains, char* const* params);
};

namespace command_shape {

// What a handler's own signature says: how many parameters follow the option, and whether it
// verifies certificate chains (then it takes the run's chain stores first).
template <class F>
struct Of;
template <class... P>
struct Of<ExitStatus (*)(P...)> {
    static constexpr bool chains = false;
    static constexpr std::size_t params = sizeof...(P);
};
template <class... P>
struct Of<ExitStatus (*)(ChainStore&, P...)> {
    static constexpr bool chains = true;
    static constexpr std::size_t params = sizeof...(P);
};

template <auto Handler, std::size_t... I>
ExitStatus call(ChainStore& chains, [[maybe_unused]] char* const* params,
                std::index_sequence<I...> /*positions*/) {
    if constexpr (Of<decltype(Handler)>::chains) {
        return Handler(chains, params[I]...);
    } else {
        return Handler(params[I]...);
    }
}

template <auto Handler>
ExitStatus run(ChainStore& chains, char* const* params) {
    return call<Handler>(chains, params,
                         std::make_index_sequence<Of<decltype(Handler)>::params>{});
}

}  // namespace command_shape

// A row for Handler: its parameter count is the one its signature has.
template <auto Handler>
constexpr CommandEntry command(std::string_view option, Usage usage, const char* params) {
    return {option, usage, params, command_shape::Of<decltype(Handler)>::params,
            command_shape::run<Handler>};
}

// Every row, in the order the usage text lists them.
[[nodiscard]] std::span<const CommandEntry> commands();

// The first row whose option matches and that takes the parameters given, or nullptr.
[[nodiscard]] const CommandEntry* find_command(int argc, char** argv);

// The usage text, listing every row that is not hidden.
void print_usage(const char* name);
