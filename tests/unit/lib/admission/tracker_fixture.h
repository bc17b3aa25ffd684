// A card in a slot, followed from outside: changes as daemon and modules make them, in their order.
#ifndef TRACKER_FIXTURE_H
#define TRACKER_FIXTURE_H

#include "admission/card_tracker.h"

#include <gmock/gmock.h>

using namespace admission;
using namespace std::chrono_literals;
using store::Cause;

inline constexpr int32_t line_card = 3;
inline constexpr int32_t main_board = 2;
inline constexpr Position slot3{1, 3, 0};

class CardTrackerTest : public testing::Test
{
protected:
    CardTrackerTest() : CardTrackerTest(std::vector<std::string>{"m1", "m2", "m3"}) {}
    // Nothing: they are not known.
    explicit CardTrackerTest(std::optional<std::vector<std::string>> modules)
    {
        if (modules) {
            tracker.set_modules(std::move(*modules));
        }
    }

    // What caused a write of the daemon: a card's information, an answer that it read, or a timer.
    static Cause by_card(const Position &at = slot3)
    {
        return {Cause::Kind::record, 1, key("p_dev.card_info:0", at)};
    }
    [[nodiscard]] Cause by_answer(const std::string &module) const
    {
        return {Cause::Kind::record, answers_.at(module).second,
                key("p_libpub.app_cg_card_check_ack", slot3) + ':' + module};
    }
    static Cause by_timer() { return {Cause::Kind::timer}; }

    // A write of the daemon that lives.
    Change daemon(const Cause &cause, bool existing = false)
    {
        return {now, existing, {++revision_, {"daemon" + std::to_string(life_), ++number_, cause}}};
    }
    // A write of somebody else.
    Change other(bool existing = false)
    {
        return {now, existing, {++revision_, {"other", 1, {Cause::Kind::none}}}};
    }
    // A write of a build that does not say who it is.
    Change unknown(bool existing = false) { return {now, existing, {++revision_, {}}}; }
    void restart()
    {
        ++life_;
        number_ = 0;
    }

    static CardFacts card(bool online, int32_t type = line_card)
    {
        return {slot3, "lc", "0a", type, 17, 259, 1259, online};
    }
    void plug(bool existing = false) { tracker.card_written(card(true), other(existing)); }
    // The daemon asks; with `existing` that is found.
    void ask(bool existing = false)
    {
        request_ = daemon(by_card(), existing);
        tracker.request_written(slot3, request_);
    }
    // The daemon asked before anybody listened.
    const Write &ask_unheard()
    {
        request_ = daemon(by_card());
        return request_.write;
    }
    // The request that the daemon wrote is notified of again.
    void find_request()
    {
        Change again = request_;
        again.existing = true;
        again.at = now;
        tracker.request_written(slot3, again);
    }
    void write_answer(const std::string &module, int32_t ret = 0, const std::string &reason = "",
                      bool existing = false)
    {
        const Change change = other(existing);
        answers_[module] = {Answer{module, ret, reason}, change.write.revision};
        tracker.answer_written(slot3, answers_[module].first, change);
    }
    void read_answer(const std::string &module)
    {
        last_ = by_answer(module);
        tracker.answer_deleted(slot3, answers_.at(module).first, daemon(last_));
    }
    // A module answers, and the daemon reads it.
    void answer(const std::string &module, int32_t ret = 0, const std::string &reason = "")
    {
        write_answer(module, ret, reason);
        read_answer(module);
    }
    void result(bool pass, const Cause &cause, int32_t type = line_card)
    {
        tracker.result_written(1259, pass, type, daemon(cause));
    }
    // The result, then the request's end, of the answer that was read last.
    void end(bool pass)
    {
        result(pass, last_);
        tracker.request_deleted(slot3, daemon(last_));
    }
    void time_out()
    {
        result(true, by_timer());
        tracker.request_deleted(slot3, daemon(by_timer()));
    }
    void unplug() { tracker.card_written(card(false), other()); }
    void go_offline()
    {
        unplug();
        tracker.result_deleted(1259, daemon(by_card()));
        tracker.request_deleted(slot3, daemon(by_card()));
    }
    const TrackedCard &shown() { return *tracker.find(slot3); }
    [[nodiscard]] const Write &request() const { return request_.write; }
    [[nodiscard]] std::vector<Outcome> outcomes() const
    {
        std::vector<Outcome> all;
        for (const Decision &decision : decisions) {
            all.push_back(decision.outcome);
        }
        return all;
    }

    std::vector<Decision> decisions;
    CardTracker tracker{[this](const Decision &decision) { decisions.push_back(decision); }};
    Time now = Time{} + 1000000s;

private:
    static std::string key(const std::string &type, const Position &at)
    {
        return type + ':' + std::to_string(at.devid) + ':' + std::to_string(at.slotid) + ':' +
               std::to_string(at.sslotid);
    }

    int life_ = 1;
    uint64_t number_ = 0;
    uint64_t revision_ = 0;
    Change request_{};
    Cause last_{};
    std::map<std::string, std::pair<Answer, uint64_t>> answers_;
};

#endif
