// The results that the daemon will come to.
//
// It reads one answer after the other, and whoever listens hears of several before the results of the first
// are written. So each answer that will have a result is kept until that is heard of, and tells whose it is.
#ifndef ADMISSION_VERDICTS_H
#define ADMISSION_VERDICTS_H

#include <deque>
#include <optional>
#include <string>

#include "admission/decision.h"

namespace admission
{

// What one answer leads to.
struct Verdict {
    bool pass = false;
    std::string module{};
    std::string reason{}; // of a denial, as the module wrote it
};

class Verdicts
{
public:
    // An answer that the daemon will read, of a module that it knows. `none_left`: a PASS leaves nobody to
    // wait for. A card that is denied is not denied again, nor passed twice; then there will be no result.
    void expect(const Answer &answer, bool none_left);
    // A result was written: the answer that led to it, or nothing when the time did, or an answer that was
    // not heard. `time_up`: the time may have passed the card before the daemon read what still waits.
    std::optional<Verdict> take(bool pass, bool time_up);
    // The daemon takes the card for undecided again, and has not read all the answers yet.
    void reopen() { decided_.reset(); }
    // Another request, or another card: what was said before counts no more.
    void forget();

private:
    std::deque<Verdict> coming_{};
    std::optional<bool> decided_{}; // the last result to the present request: whether it says PASS
};

} // namespace admission

#endif
