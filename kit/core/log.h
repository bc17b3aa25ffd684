// Where a module's messages go.
#ifndef KIT_LOG_H
#define KIT_LOG_H

#include <functional>
#include <string>
#include <utility>

#include "app_cg_kit.h"

namespace kit
{

// Passes on what is severe enough. Called from any thread, so the sink must allow that.
class Log
{
public:
    using Sink = std::function<void(int level, const std::string &text)>;

    Log() = default;
    // most  the largest level that is passed on, see enum app_cg_kit_level.
    Log(Sink sink, int most) : sink_(std::move(sink)), most_(most) {}

    void operator()(int level, const std::string &text) const
    {
        if (sink_ && level <= most_) {
            sink_(level, text);
        }
    }

private:
    Sink sink_;
    int most_ = APP_CG_KIT_DEBUG;
};

} // namespace kit

#endif
