// A check module that denies the card that would draw more than the supplies give: power_budget NAME TABLE
#include <iostream>
#include <optional>

#include <app_cg_kit.hpp>

#include "budget.h"

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::cerr << "usage: power_budget NAME TABLE\n";
        return 2;
    }
    std::optional<power_budget::Budget> budget;
    try {
        budget.emplace(power_budget::load_table(argv[2]));
    } catch (const power_budget::Malformed &problem) {
        std::cerr << "power_budget: " << problem.what() << '\n';
        return 2;
    }
    app_cg_kit::Module::Options options;
    options.name = argv[1];
    options.check = [&](const app_cg_kit::Card &card, const app_cg_kit::Check &) {
        return budget->examine(card);
    };
    options.card = [&](const app_cg_kit::Card &card, bool present) { budget->update(card, present); };
    try {
        return app_cg_kit::Module(std::move(options)).run() == 0 ? 0 : 1;
    } catch (const app_cg_kit::Error &error) {
        std::cerr << "power_budget: " << error.what() << '\n';
        return error.code() == APP_CG_KIT_E_NAME ? 2 : 1;
    }
}
