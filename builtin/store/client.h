// The store client of one platform context: its databases and their turns on the loop.
#ifndef STORE_CLIENT_H
#define STORE_CLIENT_H

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>

#include "store/database.h"

namespace vx_mom
{

class Client
{
public:
    // Reads the configuration; when that is wrong, says so in the log and on standard error, and database()
    // gives none.
    explicit Client(vx_global_t *global);

    // The database with this number; null when the configuration or the number is wrong.
    Database *database(int32_t number);
    // Calls back from the loop when the database's connection is up for the first time, requests in the order
    // asked.
    void call_when_connected(Database &database, vx_mom_connect_f callback, void *arg);

    // The client of a context, made with the first call. Null when memory ran out or the context is null.
    static Client *of(vx_global_t *global);

private:
    struct ConnectRequest {
        Database *database;
        vx_mom_connect_f callback;
        void *arg;
    };

    static void turn_cb(int fd, short what, void *self);
    void turn();
    void schedule_turn();
    bool configure(std::string &why);

    Shared shared_;
    bool usable_ = false;
    bool in_turn_ = false;
    platform::Event turn_event_;
    std::map<int32_t, std::unique_ptr<Database>> databases_;
    std::deque<ConnectRequest> requests_;
};

} // namespace vx_mom

#endif
