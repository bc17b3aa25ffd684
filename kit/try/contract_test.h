// What a check module must conform to, case by case.
#ifndef TRY_CONTRACT_TEST_H
#define TRY_CONTRACT_TEST_H

#include <functional>
#include <string>
#include <vector>

#include "try/harness.h"

namespace cg
{

struct CaseResult {
    enum class State { ok, failed, skipped };

    std::string name;
    State state = State::ok;
    std::string found;
    std::string fix; // what to do; empty unless it failed
    double took_s = 0;
};

struct ContractOptions {
    std::string name;            // that the answers must carry; empty: the one of the first answer
    std::vector<TestCard> cards; // at least two
    Harness::Span limit;         // for an answer
    Harness::Span quiet;         // how long to wait for an answer that must not come
};

// Runs all cases and reports each result as it comes. Returns whether none failed; a case that depends on a
// failed one is skipped. Throws Failure when the cases cannot be run at all.
bool run_contract_test(Harness &module, const ContractOptions &options,
                       const std::function<void(const CaseResult &)> &report);

} // namespace cg

#endif
