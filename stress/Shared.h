// What the stress controller and its worker processes agree on: the names of the start
// signal, the session values of the event lines, the contents of the contended files
// and the journal that the file workers keep.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace stress {

// Workers report themselves ready on this semaphore and start when this event is set.
// The controller appends its process id so that two runs never meet.
constexpr char kReadySemaphorePrefix[] = "KovraStressReady";
constexpr char kGoEventPrefix[] = "KovraStressGo";

inline std::string SignalName(const char* prefix, unsigned long controllerId)
{
    return prefix + std::to_string(controllerId);
}

// Event lines: every (process, thread, pair) has a session value of its own, so each
// of its two lines ("*StartSession" and "*RemoveSession") exists once in the log.
constexpr uint32_t kEventSessionTag = 0x4C000000;
constexpr int kMaxEventProcesses = 16;
constexpr int kMaxEventThreads = 16;
constexpr int kMaxEventPairs = 65536;

inline uint32_t EventSession(int process, int thread, int pair)
{
    return kEventSessionTag | static_cast<uint32_t>(process) << 20 | static_cast<uint32_t>(thread) << 16 |
           static_cast<uint32_t>(pair);
}

inline bool IsEventSession(uint32_t value)
{
    return (value & 0xFF000000) == kEventSessionTag;
}

inline void* SessionPointer(uint32_t value)
{
    return reinterpret_cast<void*>(static_cast<uintptr_t>(value));
}

// A contended file holds its token on the first line and filler derived from the token
// behind it, so that any cut or mix of two files shows.
std::string FileContent(const std::string& token);
// The token of content that is whole; empty for anything else.
std::string TokenOfContent(const std::string& content);

// Journal of a file worker, one record a line, fields separated by blanks:
//   BORN path token        the worker made the file
//   MOVED from to          Rename, or SaveFile by renaming
//   COPIED from to         SaveFile by copying; the file at from may still exist
//   REMOVED path           Remove reported the file gone
//   FAILED op path cause   a call that failed, with the cause GetLastError reported
//   RETRIED op path cause  a call that succeeded after failed attempts, the last one's cause
//   HELD path              the holder had the file open
constexpr char kBorn[] = "BORN";
constexpr char kMoved[] = "MOVED";
constexpr char kCopied[] = "COPIED";
constexpr char kRemoved[] = "REMOVED";
constexpr char kFailed[] = "FAILED";
constexpr char kRetried[] = "RETRIED";
constexpr char kHeld[] = "HELD";

// Directories of the contended files below the installation's base path.
constexpr char kWorkDirectory[] = "WORK";
constexpr char kBackupDirectory[] = "SAV";

} // namespace stress
