// A setting of the platform for a while.
#ifndef SCOPED_SETTING_H
#define SCOPED_SETTING_H

#include <cstdlib>
#include <string>

namespace store_test
{

// Sets an environment variable for the length of its life.
class ScopedSetting
{
public:
    ScopedSetting(const char *name, const std::string &value) : name_(name)
    {
        (void)setenv(name, value.c_str(), 1);
    }
    ScopedSetting(const ScopedSetting &) = delete;
    ScopedSetting &operator=(const ScopedSetting &) = delete;
    ~ScopedSetting() { (void)unsetenv(name_); }

private:
    const char *name_;
};

} // namespace store_test

#endif
