#include "Workers.h"

#include "../Shared.h"

namespace stress {

namespace {

constexpr DWORD kReadyLimitMs = 60000;

} // namespace

WorkerGroup::WorkerGroup(std::string workerProgram) : m_workerProgram(std::move(workerProgram))
{
    const DWORD self = ::GetCurrentProcessId();
    m_ready = ::CreateSemaphoreA(nullptr, 0, 1000, SignalName(kReadySemaphorePrefix, self).c_str());
    m_go = ::CreateEventA(nullptr, TRUE, FALSE, SignalName(kGoEventPrefix, self).c_str());
}

WorkerGroup::~WorkerGroup()
{
    for (PROCESS_INFORMATION& worker : m_workers) {
        ::CloseHandle(worker.hThread);
        ::CloseHandle(worker.hProcess);
    }
    if (m_go)
        ::CloseHandle(m_go);
    if (m_ready)
        ::CloseHandle(m_ready);
}

bool WorkerGroup::Start(const std::string& load, const std::string& arguments)
{
    if (!m_ready || !m_go)
        return false;
    std::string commandLine = "\"" + m_workerProgram + "\" " + load + " " + std::to_string(::GetCurrentProcessId()) +
                              " " + arguments;
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = ::GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION worker = {};
    if (!::CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &worker))
        return false;
    m_workers.push_back(worker);
    return true;
}

bool WorkerGroup::Go()
{
    for (size_t ready = 0; ready < m_workers.size(); ++ready) {
        if (::WaitForSingleObject(m_ready, kReadyLimitMs) != WAIT_OBJECT_0)
            return false;
    }
    m_started = ::GetTickCount64();
    return ::SetEvent(m_go) != FALSE;
}

int WorkerGroup::Finish(DWORD limitMs, std::string& problems)
{
    int faults = 0;
    const ULONGLONG deadline = m_started + limitMs;
    for (PROCESS_INFORMATION& worker : m_workers) {
        ULONGLONG now = ::GetTickCount64();
        DWORD left = now < deadline ? static_cast<DWORD>(deadline - now) : 0;
        DWORD exitCode = 0;
        if (::WaitForSingleObject(worker.hProcess, left) != WAIT_OBJECT_0) {
            ::TerminateProcess(worker.hProcess, 100);
            ::WaitForSingleObject(worker.hProcess, INFINITE);
            problems += "worker " + std::to_string(worker.dwProcessId) + " still ran after " +
                        std::to_string(limitMs / 1000) + " s (deadlock?); ";
            faults += 100;
        } else if (::GetExitCodeProcess(worker.hProcess, &exitCode) && exitCode != 0) {
            problems += "worker " + std::to_string(worker.dwProcessId) + " saw " + std::to_string(exitCode) +
                        " faults; ";
            faults += static_cast<int>(exitCode);
        }
    }
    m_seconds = (::GetTickCount64() - m_started) / 1000.0;
    return faults;
}

std::vector<DWORD> WorkerGroup::ProcessIds() const
{
    std::vector<DWORD> ids;
    for (const PROCESS_INFORMATION& worker : m_workers)
        ids.push_back(worker.dwProcessId);
    return ids;
}

} // namespace stress
