// Asking the sentinels of a group for its master; see the header.
#include "store/connection/sentinel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "store/connection/stream.h"

namespace store
{

namespace
{

// What the slower sentinels get after the first answer: more than a round trip on any network that a store is
// used over, and little enough that one that is gone for good costs a new connection next to nothing.
constexpr std::chrono::milliseconds patience{200};
constexpr int most_reads = 64; // of 16 KiB each; the replies take one or two

std::vector<Command> questions(const std::string &group, const Credentials &credentials)
{
    std::vector<Command> commands;
    if (!credentials.sentinel_password.empty()) {
        commands.push_back({"AUTH", credentials.sentinel_password});
        if (!credentials.sentinel_user.empty()) {
            commands.back().insert(commands.back().begin() + 1, credentials.sentinel_user);
        }
    }
    // In this order: a switch between the two gives an old epoch to the new address, which is made up for by
    // the next search, and never the new epoch to the old address, which would win over the truth.
    commands.push_back({"SENTINEL", "MASTER", group});
    commands.push_back({"SENTINEL", "GET-MASTER-ADDR-BY-NAME", group});
    return commands;
}

} // namespace

// The exchange with one sentinel.
class MasterSearch::Inquiry
{
public:
    Inquiry(const HostPort &place, const std::string &group, const Credentials &credentials);

    bool is_over() const { return !stream_.has_value(); }
    const std::optional<SentinelView> &view() const { return view_; }
    pollfd watched() const;
    // To be called when what is watched is ready.
    void step();
    std::string report() const;

private:
    void fail(const std::string &problem);
    bool send();
    void receive();
    void conclude();
    bool is_refused(const Reply &reply);

    HostPort place_;
    std::string group_;
    bool has_password_;
    std::vector<Command> questions_;
    std::optional<Stream> stream_; // as long as something is asked
    bool connected_ = false;
    int reads_ = 0;
    std::vector<Reply> replies_;
    std::optional<SentinelView> view_;
    std::string problem_;
};

MasterSearch::Inquiry::Inquiry(const HostPort &place, const std::string &group,
                               const Credentials &credentials)
    : place_(place), group_(group), has_password_(!credentials.sentinel_password.empty()),
      questions_(questions(group, credentials))
{
    Endpoint endpoint;
    endpoint.text = place_text(place);
    endpoint.host = place.host;
    endpoint.port = place.port;
    stream_.emplace(endpoint);
    if (stream_->failed()) {
        fail(stream_->problem());
    }
}

pollfd MasterSearch::Inquiry::watched() const
{
    int events = connected_ ? POLLIN : POLLOUT;
    if (stream_->has_output()) {
        events |= POLLOUT;
    }
    return {stream_->fd(), static_cast<short>(events), 0};
}

void MasterSearch::Inquiry::step()
{
    if (!connected_) {
        if (!stream_->finish_connecting()) {
            fail(stream_->problem());
            return;
        }
        connected_ = true;
        for (const Command &question : questions_) {
            stream_->append(question);
        }
    }
    if (send()) {
        receive();
    }
}

bool MasterSearch::Inquiry::send()
{
    if (stream_->has_output() && !stream_->send_some()) {
        fail(stream_->problem());
        return false;
    }
    return true;
}

void MasterSearch::Inquiry::receive()
{
    if (!stream_->read_some()) {
        fail(stream_->problem());
        return;
    }
    while (replies_.size() < questions_.size()) {
        Reply reply = stream_->next_reply();
        if (reply == nullptr) {
            if (stream_->failed()) {
                fail(stream_->problem());
            } else if (++reads_ >= most_reads) {
                fail("answers without an end");
            }
            return;
        }
        if (is_refused(reply)) {
            return;
        }
        replies_.push_back(std::move(reply));
    }
    conclude();
}

// Whether a reply ends the exchange: those to AUTH, and to everything when AUTH is missing.
bool MasterSearch::Inquiry::is_refused(const Reply &reply)
{
    const bool lacks_password = is_error(reply.get(), "NOAUTH");
    const bool is_auth = has_password_ && replies_.empty();
    if (!lacks_password && !(is_auth && is_error(reply.get()))) {
        return false;
    }
    fail("refuses: " + quotable(text_of(reply.get())) +
         (has_password_ ? "" : " (there is no sentinel-password in the file of credentials)"));
    return true;
}

void MasterSearch::Inquiry::conclude()
{
    const redisReply *details = replies_[replies_.size() - 2].get();
    std::string problem;
    view_ = read_view(details, replies_.back().get(), group_, problem);
    problem_ = problem;
    stream_.reset();
}

void MasterSearch::Inquiry::fail(const std::string &problem)
{
    // A server that turns us away says why before it hangs up.
    const auto refusal = std::find_if(replies_.begin(), replies_.end(),
                                      [](const Reply &reply) { return is_error(reply.get()); });
    problem_ = refusal == replies_.end() ? problem : "refuses: " + quotable(text_of(refusal->get()));
    stream_.reset();
}

std::string MasterSearch::Inquiry::report() const
{
    std::string what = problem_;
    if (view_) {
        what = "names " + place_text(view_->place) + " (epoch " + std::to_string(view_->epoch) + ", " +
               (view_->flags.empty() ? "no flags" : quotable(view_->flags)) + ")";
    } else if (!is_over()) {
        what = connected_ ? "no answer yet" : "no connection yet";
    }
    return place_text(place_) + ": " + what;
}

MasterSearch::MasterSearch(const Endpoint &endpoint, const Credentials &credentials) : group_(endpoint.group)
{
    for (const HostPort &place : endpoint.sentinels) {
        inquiries_.push_back(std::make_unique<Inquiry>(place, group_, credentials));
    }
}

MasterSearch::MasterSearch(MasterSearch &&) noexcept = default;
MasterSearch &MasterSearch::operator=(MasterSearch &&) noexcept = default;
MasterSearch::~MasterSearch() = default;

bool MasterSearch::advance(Clock::time_point now)
{
    std::vector<pollfd> ready = watched();
    if (!ready.empty() && poll(ready.data(), ready.size(), 0) > 0) {
        for (const auto &inquiry : inquiries_) {
            const auto one = std::find_if(ready.begin(), ready.end(), [&inquiry](const pollfd &candidate) {
                return !inquiry->is_over() && candidate.fd == inquiry->watched().fd;
            });
            if (one != ready.end() && one->revents != 0) {
                inquiry->step();
            }
        }
    }
    bool is_one_silent = false;
    for (const auto &inquiry : inquiries_) {
        is_one_silent = is_one_silent || !inquiry->is_over();
        if (inquiry->view() && !first_answer_) {
            first_answer_ = now;
        }
    }
    over_ = over_ || !is_one_silent || (first_answer_ && now >= *first_answer_ + patience);
    return over_;
}

std::vector<pollfd> MasterSearch::watched() const
{
    std::vector<pollfd> descriptors;
    for (const auto &inquiry : inquiries_) {
        if (!over_ && !inquiry->is_over()) {
            descriptors.push_back(inquiry->watched());
        }
    }
    return descriptors;
}

std::optional<Clock::time_point> MasterSearch::due() const
{
    return !over_ && first_answer_ ? std::optional(*first_answer_ + patience) : std::nullopt;
}

std::optional<Master> MasterSearch::found() const
{
    std::vector<SentinelView> views;
    for (const auto &inquiry : inquiries_) {
        if (inquiry->view()) {
            views.push_back(*inquiry->view());
        }
    }
    return choose_master(views, group_);
}

std::string MasterSearch::problem() const
{
    std::string text;
    for (const auto &inquiry : inquiries_) {
        text += (text.empty() ? "" : "; ") + inquiry->report();
    }
    return text;
}

std::optional<std::string> run_search(MasterSearch &search, Clock::time_point deadline)
{
    while (!search.advance()) {
        const Clock::time_point now = Clock::now();
        if (now >= deadline) {
            break;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::min(deadline, search.due().value_or(deadline)) - now);
        std::vector<pollfd> watched = search.watched();
        // One millisecond more: what is left was rounded down.
        const auto limit_ms = std::clamp<int64_t>(left.count() + 1, 0, 60000);
        if (poll(watched.data(), watched.size(), static_cast<int>(limit_ms)) < 0 && errno != EINTR) {
            return std::string("poll: ") + std::strerror(errno);
        }
    }
    return std::nullopt;
}

std::optional<Master> find_master(const Endpoint &endpoint, const Credentials &credentials,
                                  Clock::time_point deadline, std::string &problem)
{
    MasterSearch search(endpoint, credentials);
    if (const auto why = run_search(search, deadline)) {
        problem = *why;
        return std::nullopt;
    }
    std::optional<Master> master = search.found();
    if (!master) {
        problem = "no master of '" + endpoint.group + "' is known: " + search.problem();
    }
    return master;
}

} // namespace store
