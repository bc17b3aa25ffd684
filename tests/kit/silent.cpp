// A check module that promises a verdict and never gives it, for tests of what the kit says then.
#include <exception>
#include <vector>

#include "app_cg_kit.hpp"

int main(int argc, char **argv)
try {
    std::vector<app_cg_kit::Check> kept;
    app_cg_kit::Module module(argc > 1 ? argv[1] : "",
                              [&](const app_cg_kit::Card &, const app_cg_kit::Check &check) {
                                  kept.push_back(check);
                                  return app_cg_kit::later();
                              });
    return module.run() == 0 ? 0 : 1;
} catch (const std::exception &) {
    return 1;
}
