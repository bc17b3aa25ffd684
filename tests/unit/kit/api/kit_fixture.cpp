// A module made with the kit, on a private store.
#include "kit_fixture.h"

#include <algorithm>
#include <utility>

namespace kit_test
{

void Logged::add(int level, const std::string &text)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    lines_.push_back(std::to_string(level) + ' ' + text);
}

std::size_t Logged::count(const std::string &text) const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto matches = [&](const std::string &line) { return line.find(text) != std::string::npos; };
    return static_cast<std::size_t>(std::count_if(lines_.begin(), lines_.end(), matches));
}

bool Logged::has(const std::string &text) const
{
    return count(text) > 0;
}

std::string Logged::all() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    std::string text;
    for (const std::string &line : lines_) {
        text += line + '\n';
    }
    return text;
}

KitTest::KitTest()
{
    options_.name = "volt";
    options_.flags = APP_CG_KIT_NO_SIGNALS;
    options_.module_folder = "";
    options_.lock_folder = folder_.path("");
    options_.log_level = APP_CG_KIT_DEBUG;
    options_.log = [this](int level, const std::string &text) { logged_.add(level, text); };
}

KitTest::~KitTest()
{
    if (thread_.joinable()) {
        module_->stop();
        thread_.join();
    }
}

void KitTest::serve(
    std::function<app_cg_kit::Verdict(const app_cg_kit::Card &, const app_cg_kit::Check &)> check)
{
    options_.check = std::move(check);
    module_ = std::make_unique<app_cg_kit::Module>(options_);
    thread_ = std::thread([this] { result_ = module_->run(); });
    ASSERT_TRUE(logs("6 subscribed")) << logged_.all();
}

void KitTest::end()
{
    module_->stop();
    thread_.join();
    EXPECT_EQ(result_, 0);
    module_.reset();
}

bool KitTest::logs(const std::string &text)
{
    return eventually([&] { return logged_.has(text); });
}

void KitTest::ask(const std::string &slot, const std::string &type)
{
    cgctl({"set", "--fields", "app_cg_card_check_info", "devid=1", "slotid=" + slot, "type=" + type,
           "node_type=DM_TYPE_LC", "card_nodeid=7"});
}

void KitTest::withdraw(const std::string &slot)
{
    cgctl({"del", "app_cg_card_check_info", "devid=1", "slotid=" + slot});
}

Json KitTest::take_answer(const std::string &slot, const std::string &module)
{
    const std::vector<std::string> key{"app_cg_card_check_ack", "devid=1", "slotid=" + slot,
                                       "mod_name=" + module};
    std::vector<std::string> get{"get", "--json"};
    get.insert(get.end(), key.begin(), key.end());
    cg::Outcome outcome;
    const bool came = eventually([&] { return (outcome = cg::run_cgctl(get)).status == 0; });
    EXPECT_TRUE(came) << "no answer for " << slot << "\n" << logged_.all();
    std::vector<std::string> del{"del"};
    del.insert(del.end(), key.begin(), key.end());
    cgctl(del);
    return came ? outcome.json()["record"] : Json::object({{"ret", -1}, {"reason", ""}});
}

void KitTest::settle()
{
    ask("99");
    EXPECT_EQ(take_answer("99")["ret"], 0);
    withdraw("99");
}

std::size_t KitTest::answers()
{
    return Json::parse(cgctl({"get", "app_cg_card_check_ack", "--json"}))["records"].size();
}

void KitTest::cut_connections()
{
    (void)tell_server("CLIENT KILL TYPE pubsub\r\nCLIENT KILL TYPE normal SKIPME yes\r\n");
}

} // namespace kit_test
