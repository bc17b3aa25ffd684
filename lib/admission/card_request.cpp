// A card's check request: when it begins a check, when it is one that is known, and how the one before ended.
#include <algorithm>
#include <utility>

#include "card_entry.h"

namespace admission
{

void CardTracker::request_written(const Position &position, Time at, bool existing)
{
    Entry &known = entry(position);
    modules_known_ = modules_known_ && !modules_.empty(); // without modules the daemon asks for nothing
    if (known.open && goes_on(known, at, existing)) {
        if (!existing) {
            known.rewrite = Rewrite{at, known.list, known.shown.answers};
        }
        known.shown.request = true;
        known.seen_whole = known.seen_whole && !existing; // there may have been answers that nobody heard
    } else {
        bool fresh_daemon = existing || !known.came_online || known.daemon_ended;
        bool leftover = false;
        if (known.open) {
            const Replaced how = replaced_how(known, existing);
            fresh_daemon = fresh_daemon || how == Replaced::cut_off;
            leftover = existing && known.daemon_ended;
            end_replaced(known, how, at);
        }
        begin_check(known, at, existing, fresh_daemon);
        known.leftover = leftover;
    }
    settle(known, at, existing);
}

// A request that was heard of before a loss is the same one, unless the daemon or the card is another; a
// remembered one only while its time runs: the daemon would have ended it. One that is written again while
// its daemon lives and its card stays is the same one, too: the daemon's timer runs on.
bool CardTracker::goes_on(const Entry &known, Time at, bool existing) const
{
    if (known.gone || known.daemon_ended) {
        return false;
    }
    if (!existing) {
        return daemon_watched_ && known.shown.request && known.shown.requested_at && !known.came_online;
    }
    const bool has_time = known.shown.request || !known.shown.requested_at ||
                          at - *known.shown.requested_at <= timeout_ + slack;
    return has_time && is_same_card(known.asked, known.shown.card);
}

// A daemon that lives takes its request back before it writes another one. So where nobody tells of its life,
// a request that takes the place of a standing one is a fresh daemon's.
CardTracker::Replaced CardTracker::replaced_how(const Entry &known, bool existing) const
{
    if (existing || known.gone || !known.shown.request) {
        return Replaced::unseen;
    }
    if (known.leftover) {
        return Replaced::unknown; // that it ended unseen was told
    }
    if (known.daemon_ended || !daemon_watched_) {
        return Replaced::cut_off;
    }
    return known.came_online ? Replaced::returned : Replaced::unknown;
}

void CardTracker::end_replaced(Entry &known, Replaced how, Time at)
{
    switch (how) {
    case Replaced::unseen:
        end_unseen(known, at, std::nullopt); // what the result says now may be of a check before
        break;
    case Replaced::returned:
    case Replaced::cut_off:
        end_withdrawn(known, at, how == Replaced::cut_off);
        break;
    case Replaced::unknown:
        break;
    }
}

// A card that came on line keeps what is left of its list. A request without that comes from a daemon that
// was started afresh, whose table is new.
void CardTracker::begin_check(Entry &known, Time at, bool existing, bool fresh_daemon)
{
    if (fresh_daemon) {
        if (!existing && known.has_card && fresh_daemon_) {
            fresh_daemon_();
        }
        known.earlier.clear();
        take_list(known, existing);
    } else if (known.shown.requested_at) {
        std::erase_if(known.earlier, [&](Time asked) { return at - asked > timeout_ + slack; });
        known.earlier.push_back(*known.shown.requested_at);
    }
    known.came_online = false;
    known.rewrite.reset();
    known.daemon_ended = false;
    known.gone = false;
    known.open = true;
    known.list_blank = known.list_blank || (!modules_known_ && known.list.empty());
    known.seen_whole = !existing && known.list_known && !known.list_blank;
    known.settled.reset();
    known.verdicts.forget();
    known.shown.request = true;
    known.shown.requested_at = existing ? std::nullopt : std::optional(at);
    known.shown.answers.clear();
    known.told = 0;
    known.shown.since = known.shown.requested_at;
    known.asked = known.has_card ? known.shown.card : CardFacts{};
    if (++known.checks == 1) {
        known.first = FirstCheck{at, existing && !complete_since_, known.asked};
    }
}

// How a check ended whose request is found to be gone, its result tells, which is told later.
void CardTracker::request_deleted(const Position &position, Time at, bool existing)
{
    Entry &known = entry(position);
    known.shown.request = false;
    if (known.open && existing) {
        known.gone = true;
    } else if (known.open) {
        end_withdrawn(known, at, false);
    }
    settle(known, at, existing);
    forget_if_empty(position);
}

// The one that ended has left its request behind, whoever had asked before it. Where it had not asked yet,
// its forerunner's check is told of twice: that is less than a check that nobody is told of.
void CardTracker::daemon_ended()
{
    for (const auto &[position, known] : entries_) {
        known->daemon_ended = true;
        known->leftover = false;
    }
}

void CardTracker::daemon_started_again(Time at)
{
    for (const auto &[position, known] : entries_) {
        if (known->open && known->rewrite && known->rewrite->at >= at - slack) {
            cut_off_at_rewrite(*known);
        } else {
            known->daemon_ended = true;
            known->leftover = false;
        }
    }
}

void CardTracker::cut_off_at_rewrite(Entry &known)
{
    const Rewrite then = *known.rewrite;
    std::vector<Answer> later = std::exchange(known.shown.answers, then.answers);
    later.erase(later.begin(), later.begin() + std::min(std::ssize(later), std::ssize(then.answers)));
    known.list = then.list;
    known.told = std::min(known.told, then.answers.size());
    end_withdrawn(known, then.at, true);
    begin_check(known, then.at, false, true);
    settle(known, then.at, false);
    for (const Answer &answer : later) {
        answered(known.shown.card.position, answer, false);
    }
}

} // namespace admission
