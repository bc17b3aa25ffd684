// How a card stands.
#include "admission/state.h"

namespace admission
{

namespace
{

State state_after(bool pass, Outcome cause)
{
    if (!pass) {
        return State::denied;
    }
    switch (cause) {
    case Outcome::silence:
        return State::silence;
    case Outcome::exempt:
        return State::exempt;
    case Outcome::unasked:
        return State::unasked;
    default:
        return State::passed;
    }
}

} // namespace

State state_of(const Standing &standing)
{
    if (!standing.is_there) {
        return State::absent;
    }
    if (standing.result && state_after(*standing.result, standing.cause) == State::exempt) {
        return State::exempt;
    }
    if (!standing.online) {
        return State::offline;
    }
    if (standing.waits) {
        return State::waiting;
    }
    return standing.result ? state_after(*standing.result, standing.cause) : State::undecided;
}

} // namespace admission
