// app_cg_kit for C++: app_cg_kit.h with owners, std::function, and exceptions from constructors. Header only,
// so that the library has a C interface alone. See there for all that is not documented here.
//
//     int main()
//     {
//         app_cg_kit::Module module("types", [](const app_cg_kit::Card &card, const app_cg_kit::Check &) {
//             return card.type < 300 ? app_cg_kit::pass() : app_cg_kit::deny("types from 300 on are not
//             supported");
//         });
//         return module.run() == 0 ? 0 : 1;
//     }
#ifndef APP_CG_KIT_HPP
#define APP_CG_KIT_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "app_cg_kit.h"

namespace app_cg_kit
{

// A module that could not be made: the result of app_cg_kit_open(), with its sentence.
class Error : public std::runtime_error
{
public:
    explicit Error(int code) : std::runtime_error(app_cg_kit_error_text(code)), code_(code) {}
    int code() const noexcept { return code_; }

private:
    int code_;
};

// A card; a copy, which may be kept.
struct Card {
    struct Info {
        bool online = false;
        std::string name;
        std::string type_name;
        std::vector<std::uint8_t> serial;
    };

    std::int32_t devid = 0;
    std::int32_t slotid = 0;
    std::int32_t sslotid = 0;
    std::int32_t type = 0;
    std::int32_t node_type = 0;
    std::int32_t node_id = 0;
    std::optional<Info> info{}; // nothing when the device manager has none

    Card() = default;
    explicit Card(const app_cg_kit_card_t &card)
        : devid(card.devid), slotid(card.slotid), sslotid(card.sslotid), type(card.type),
          node_type(card.node_type), node_id(card.node_id)
    {
        if (card.has_info != 0) {
            info.emplace(Info{
                card.online != 0, card.name, card.type_name, {card.serial, card.serial + card.serial_size}});
        }
    }

    // "1/3/0"
    std::string position() const
    {
        return std::to_string(devid) + '/' + std::to_string(slotid) + '/' + std::to_string(sslotid);
    }
};

// The result of an examination.
struct Verdict {
    int verdict = APP_CG_KIT_AGAIN;
    std::string reason{};
};

inline Verdict pass()
{
    return {APP_CG_KIT_PASS, {}};
}
inline Verdict deny(std::string reason)
{
    return {APP_CG_KIT_DENY, std::move(reason)};
}
// A copy of the Check gives the verdict later.
inline Verdict later()
{
    return {APP_CG_KIT_LATER, {}};
}
// No verdict is possible now; called again in a second.
inline Verdict ask_again()
{
    return {APP_CG_KIT_AGAIN, {}};
}

// An examination. Copies refer to the same one; keep one to give the verdict later, from any thread.
class Check
{
public:
    explicit Check(app_cg_kit_check_t *handle) : handle_(app_cg_kit_hold(handle), app_cg_kit_release) {}

    // Each returns 0 when the verdict was accepted, else why it was dropped: APP_CG_KIT_E_ANSWERED,
    // _WITHDRAWN, _STOPPED.
    int pass() const { return app_cg_kit_answer(handle_.get(), APP_CG_KIT_PASS, nullptr); }
    int deny(const std::string &reason) const
    {
        return app_cg_kit_answer(handle_.get(), APP_CG_KIT_DENY, reason.c_str());
    }
    bool is_open() const { return app_cg_kit_is_open(handle_.get()) != 0; }

    friend bool operator==(const Check &one, const Check &other)
    {
        return one.handle_.get() == other.handle_.get();
    }

private:
    std::shared_ptr<app_cg_kit_check_t> handle_;
};

// The library's defaults.
inline app_cg_kit_options_t default_options()
{
    app_cg_kit_options_t options;
    app_cg_kit_options_init(&options);
    return options;
}

class Module
{
public:
    struct Options {
        std::string name{};
        std::function<Verdict(const Card &, const Check &)> check{};   // must be set
        std::function<void(const Card &, const Check &)> withdrawn{};  // or empty
        std::function<void(const Card &, bool present)> card{};        // or empty
        std::function<void(int level, const std::string &text)> log{}; // empty: standard error
        int log_level = default_options().log_level;
        unsigned flags = 0;                                         // enum app_cg_kit_flag
        std::optional<std::string> endpoint{};                      // nothing: as the settings say
        std::string module_folder{default_options().module_folder}; // empty: not read
        std::string lock_folder{default_options().lock_folder};     // empty: no lock
    };

    // Throws Error.
    explicit Module(Options options) : options_(std::make_unique<Options>(std::move(options))) { open(); }
    Module(std::string name, std::function<Verdict(const Card &, const Check &)> check)
        : options_(std::make_unique<Options>())
    {
        options_->name = std::move(name);
        options_->check = std::move(check);
        open();
    }

    // Serves; see app_cg_kit_run().
    int run() { return app_cg_kit_run(kit_.get()); }
    // From any thread.
    void stop() { (void)app_cg_kit_stop(kit_.get()); }

private:
    struct Close {
        void operator()(app_cg_kit_t *kit) const noexcept { app_cg_kit_close(kit); }
    };

    void open()
    {
        app_cg_kit_options_t options;
        app_cg_kit_options_init(&options);
        options.name = options_->name.c_str();
        options.check = options_->check ? on_check : nullptr;
        options.withdrawn = options_->withdrawn ? on_withdrawn : nullptr;
        options.card = options_->card ? on_card : nullptr;
        options.log = options_->log ? on_log : nullptr;
        options.arg = options_.get();
        options.log_level = options_->log_level;
        options.flags = options_->flags;
        options.endpoint = options_->endpoint ? options_->endpoint->c_str() : nullptr;
        options.module_folder = options_->module_folder.c_str();
        options.lock_folder = options_->lock_folder.c_str();
        app_cg_kit_t *kit = nullptr;
        const int result = app_cg_kit_open(&options, &kit);
        if (result != 0) {
            throw Error(result);
        }
        kit_.reset(kit);
    }

    // The library catches what these throw.
    static int on_check(void *arg, const app_cg_kit_card_t *card, app_cg_kit_check_t *check)
    {
        const Verdict verdict = static_cast<Options *>(arg)->check(Card(*card), Check(check));
        return verdict.verdict == APP_CG_KIT_DENY ? app_cg_kit_deny(check, verdict.reason.c_str())
                                                  : verdict.verdict;
    }
    static void on_withdrawn(void *arg, const app_cg_kit_card_t *card, app_cg_kit_check_t *check)
    {
        static_cast<Options *>(arg)->withdrawn(Card(*card), Check(check));
    }
    static void on_card(void *arg, const app_cg_kit_card_t *card, int present)
    {
        static_cast<Options *>(arg)->card(Card(*card), present != 0);
    }
    static void on_log(void *arg, int level, const char *text)
    {
        static_cast<Options *>(arg)->log(level, text);
    }

    std::unique_ptr<Options> options_; // where the library finds it, wherever the module is moved
    std::unique_ptr<app_cg_kit_t, Close> kit_;
};

} // namespace app_cg_kit

#endif
