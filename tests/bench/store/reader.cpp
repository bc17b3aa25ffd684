// The other process; see the header. It must be started before this process has a store client of its own:
// after a fork both would use its connection.
#include "reader.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "measure.h"
#include "vx_mom/value.h"

namespace bench
{

namespace
{

// Notes and reports; what both ways end in.
struct Note {
    double *held;
    int group;
    int report;
    int count = 0;

    void ready() const { (void)!write(report, "r", 1); }
    void record()
    {
        if (++count % group == 0) {
            *held = now_us();
            ready();
        }
    }
};

vx_mom::Fields fields_of(const redisReply &reply)
{
    vx_mom::Fields fields;
    for (size_t i = 0; i + 1 < reply.elements; i += 2) {
        fields.emplace_back(text_of(*reply.element[i]), text_of(*reply.element[i + 1]));
    }
    return fields;
}

void read_notified(const std::string &socket, Note &note)
{
    const std::string prefix = "__keyspace@" + std::to_string(host) + "__:";
    Raw events(socket, host);
    Raw records(socket, host);
    (void)events.run({"PSUBSCRIBE", prefix + "p_dev.card_info:*"});
    note.ready();
    for (;;) {
        const RawReply message = events.next();
        const std::string key = text_of(*message->element[2]).substr(prefix.size());
        const RawReply content = records.run({"HGETALL", key});
        std::string why;
        if (vx_mom::decode_record(p_dev__card_info__descriptor, key, fields_of(*content), why) != nullptr) {
            note.record();
        }
    }
}

int32_t on_card(void *arg, vx_mom_pmsg_t *pmsg)
{
    auto *note = static_cast<Note *>(arg);
    if (pmsg->cmd == VX_MOM_CMD_SUBSCRIBED) {
        note->ready();
    } else if (pmsg->cmd != VX_MOM_CMD_DELETED && pmsg->result->error_code == 0) {
        note->record();
    }
    return 0;
}

void read_ours(const std::string &socket, Note &note)
{
    const Context context = client(socket, "bench_reader");
    const Card pattern(0);
    check(vx_mom_subscribe(context.get(), host, &pattern.record.base, 0, on_card, &note), "subscription");
    (void)vx_global_run(context.get());
}

} // namespace

Reader::Reader(const std::string &socket, Way way, int group)
    : held_(static_cast<double *>(
          mmap(nullptr, sizeof(double), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
{
    int ends[2];
    if (held_ == MAP_FAILED || pipe(ends) != 0) {
        throw std::runtime_error("no memory or pipe for the reader");
    }
    pid_ = fork();
    if (pid_ == 0) {
        become(socket, way, group, ends[1]);
    }
    close(ends[1]);
    reports_ = ends[0];
    (void)wait(); // until it has subscribed
}

Reader::~Reader()
{
    (void)kill(pid_, SIGKILL);
    (void)waitpid(pid_, nullptr, 0);
    close(reports_);
    munmap(held_, sizeof(double));
}

double Reader::wait()
{
    char byte = 0;
    if (read(reports_, &byte, 1) != 1) {
        throw std::runtime_error("the reader has ended");
    }
    return *held_;
}

void Reader::become(const std::string &socket, Way way, int group, int report) const
{
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
        Note note{held_, group, report};
        if (way == Way::ours) {
            read_ours(socket, note);
        } else {
            read_notified(socket, note);
        }
    } catch (const std::exception &failure) {
        (void)std::fprintf(stderr, "reader: %s\n", failure.what());
    }
    _exit(1);
}

} // namespace bench
