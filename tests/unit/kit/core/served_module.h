// A module as its author makes it, by the public interface, in the surroundings of ModuleTest.
#ifndef SERVED_MODULE_H
#define SERVED_MODULE_H

#include "module_fixture.h"

namespace kit_test
{

using app_cg_kit::Card;
using app_cg_kit::Check;
using app_cg_kit::Verdict;

class Kit : public ModuleTest
{
protected:
    Kit()
    {
        options_.name = "volt";
        options_.flags = APP_CG_KIT_NO_SIGNALS;
        options_.endpoint = "unix:/nowhere";
        options_.module_folder = "";
        options_.lock_folder = "";
        options_.log_level = APP_CG_KIT_DEBUG;
        options_.log = [log = log_to_lines()](int level, const std::string &text) { log(level, text); };
    }

    void serve(std::function<Verdict(const Card &, const Check &)> check, const std::function<void()> &story)
    {
        options_.check = std::move(check);
        app_cg_kit::Module module(options_);
        fake_loop::on_run([&] {
            fake_store::connect();
            fake_loop::deliver();
            story();
        });
        EXPECT_EQ(module.run(), 0);
    }

    // A module that gives its verdicts later and keeps the handles.
    void serve_later(const std::function<void()> &story)
    {
        serve(
            [this](const Card &, const Check &check) {
                kept_.push_back(check);
                return app_cg_kit::later();
            },
            story);
        kept_.clear();
    }

    // Records which examinations were withdrawn, as "3 type name".
    void note_withdrawals()
    {
        options_.withdrawn = [this](const Card &card, const Check &check) {
            EXPECT_FALSE(check.is_open());
            withdrawn_.push_back(std::to_string(card.slotid) + ' ' + std::to_string(card.type) + ' ' +
                                 (card.info ? card.info->name : "none"));
        };
    }

    // As after an outage, which makes one of a deletion and the next request.
    void exchange_unseen(int32_t slot, const CardInfo &card)
    {
        plug(slot, card);
        request(slot);
    }

    app_cg_kit::Module::Options options_;
    std::vector<Check> kept_;
    Strings withdrawn_;
};

} // namespace kit_test

#endif
