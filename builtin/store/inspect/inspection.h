// A plain connection for those who look at the server itself: its version, its users, its functions.
//
// It does nothing by itself, neither repeating nor registering, so that what it shows is what is there. It is
// no way to read or write records: those calls are the platform's.
#ifndef INSPECT_INSPECTION_H
#define INSPECT_INSPECTION_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "store/connection/configuration.h"

namespace store
{

// A reply of the server, free of any library's types.
struct Inspected {
    enum class Kind { nothing, error, text, number, list };
    Kind kind = Kind::nothing;
    std::string text; // of an error, a text, a number
    std::vector<Inspected> items;

    [[nodiscard]] bool is_error() const { return kind == Kind::error; }
    // In a list that alternates names and values, the value of a name; nothing where the name is not.
    [[nodiscard]] const Inspected &value_of(const std::string &name) const;
};

class Inspection
{
public:
    // Connects within the limit to where a database is configured to be, or to a place, and selects it.
    // Database 0 is on every server, and its place is that of the settings without a number. When that fails,
    // is_open() is false and problem() says why: a line that names the endpoint and the server's own words.
    Inspection(int32_t database, std::chrono::milliseconds limit);
    Inspection(const StorePlace &place, int32_t database, std::chrono::milliseconds limit);
    Inspection(Inspection &&) noexcept;
    Inspection &operator=(Inspection &&) noexcept;
    Inspection(const Inspection &) = delete;
    Inspection &operator=(const Inspection &) = delete;
    ~Inspection();

    [[nodiscard]] bool is_open() const;
    [[nodiscard]] const std::string &problem() const;

    // The server's reply, its errors included; nothing when the connection failed, which problem() explains.
    std::optional<Inspected> ask(const std::vector<std::string> &command, std::chrono::milliseconds limit);

    // After a subscription: the next thing that the server pushes; nothing, and the connection is closed,
    // when there is none in time.
    std::optional<Inspected> next(std::chrono::milliseconds limit);

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace store

#endif
