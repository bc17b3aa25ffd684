// The other process; see the header. It must be started before this process has a store client of its own:
// after a fork both would use its connection.
#include "reader.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <stdexcept>

#include "measure.h"
#include "store/codec/value.h"

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

store::Fields fields_of(const redisReply &reply)
{
    store::Fields fields;
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
        if (store::decode_record(p_dev__card_info__descriptor, key, fields_of(*content), why) != nullptr) {
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

// Memory that a process forked from now on shares.
double *shared_number()
{
    void *memory = mmap(nullptr, sizeof(double), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::runtime_error("no memory to share with the reader");
    }
    return static_cast<double *>(memory);
}

void become_reader(const std::string &socket, Way way, Note note)
{
    try {
        if (way == Way::ours) {
            read_ours(socket, note);
        } else {
            read_notified(socket, note);
        }
    } catch (const std::exception &failure) {
        (void)std::fprintf(stderr, "reader: %s\n", failure.what());
    }
}

} // namespace

void Reader::Unmap::operator()(double *shared) const
{
    (void)munmap(shared, sizeof(double));
}

Reader::Reader(const std::string &socket, Way way, int group)
    : held_(shared_number()), process_([&](int report) {
          become_reader(socket, way, Note{held_.get(), group, report});
      })
{
    (void)wait(); // until it has subscribed
}

double Reader::wait()
{
    char byte = 0;
    if (read(process_.reports(), &byte, 1) != 1) {
        throw std::runtime_error("the reader has ended");
    }
    return *held_;
}

} // namespace bench
