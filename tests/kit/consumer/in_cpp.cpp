// The same in C++.
#include <app_cg_kit.hpp>
#include <iostream>

int main(int argc, char **argv)
try {
    app_cg_kit::Module::Options options;
    options.name = argc > 1 ? argv[1] : "";
    options.check = [](const app_cg_kit::Card &card, const app_cg_kit::Check &) {
        return card.type < 300 ? app_cg_kit::pass() : app_cg_kit::deny("too new");
    };
    options.lock_folder.clear();
    app_cg_kit::Module module(std::move(options));
    std::cout << "done\n";
    return 0;
} catch (const app_cg_kit::Error &error) {
    std::cout << error.what() << '\n';
    return 1;
}
