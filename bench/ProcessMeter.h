#pragma once

#include <QHash>
#include <QString>

#include <sys/types.h>

// What a running process has used so far, read from /proc: CPU time, the times its threads went
// to sleep or were put aside (context switches: each wake-up costs one), and resident memory.
class ProcessMeter {
public:
    struct Reading {
        double cpuMs = 0;
        long long contextSwitches = 0;
    };

    explicit ProcessMeter(pid_t pid)
        : m_pid(pid) {}

    // CPU time of all its threads, ended ones included (at the kernel's tick, 10 ms); context
    // switches of its threads, those that ended since an earlier reading with the count that
    // reading saw.
    Reading read();
    // Resident memory in MiB; negative when the process is gone.
    double residentMiB() const;

private:
    pid_t m_pid;
    // Context switches of each thread seen, by its id.
    QHash<QString, long long> m_threadSwitches;
};
