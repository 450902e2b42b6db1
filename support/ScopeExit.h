#pragma once

// Runs a clean-up when a scope ends, however it ends: the library's way of keeping a state
// consistent when an exception passes through code that must always finish its bookkeeping.

#include <utility>

namespace dtm {
namespace detail {

template <class Action>
class ScopeExit {
public:
    explicit ScopeExit(Action action) : m_action(std::move(action)) {}
    ~ScopeExit() { m_action(); }
    ScopeExit(const ScopeExit&) = delete;
    ScopeExit& operator=(const ScopeExit&) = delete;

private:
    Action m_action;
};

template <class Action>
ScopeExit<Action> OnScopeExit(Action action) {
    return ScopeExit<Action>(std::move(action));
}

}  // namespace detail
}  // namespace dtm
