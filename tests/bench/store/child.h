// A process of ours that tells this one something through a pipe, and that ends with it.
#ifndef BENCH_CHILD_H
#define BENCH_CHILD_H

#include <sys/types.h>

#include <functional>

namespace bench
{

class Child
{
public:
    // Forks; `become` is called in the child with the end of the pipe that it writes to, and must not return.
    // The child dies with this process, however that ends. Throws when there is no pipe or process.
    explicit Child(const std::function<void(int report)> &become);
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    // Kills it and waits for its end.
    ~Child();

    // The end of the pipe to read from.
    int reports() const { return reports_; }

private:
    int reports_ = -1;
    pid_t pid_ = -1;
};

} // namespace bench

#endif
