// The worker processes of one load: started together, let go at one moment, waited for
// with a time limit.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace stress {

class WorkerGroup {
public:
    explicit WorkerGroup(std::string workerProgram);
    ~WorkerGroup();
    WorkerGroup(const WorkerGroup&) = delete;
    WorkerGroup& operator=(const WorkerGroup&) = delete;

    // Starts a worker with these arguments after its load's name; it waits for Go.
    bool Start(const std::string& load, const std::string& arguments);
    // Waits until every worker has loaded the library and reported ready, then lets all go.
    bool Go();
    // Waits for every worker to exit within limitMs milliseconds after Go. Returns the sum
    // of their exit codes (their faults); a worker still running then is ended and counted
    // as 100 faults, and problems describes what went wrong.
    int Finish(DWORD limitMs, std::string& problems);

    std::vector<DWORD> ProcessIds() const;
    // Seconds from Go to the end of the last worker.
    double Seconds() const { return m_seconds; }

private:
    std::string m_workerProgram;
    HANDLE m_ready;
    HANDLE m_go;
    std::vector<PROCESS_INFORMATION> m_workers;
    ULONGLONG m_started = 0;
    double m_seconds = 0;
};

} // namespace stress
