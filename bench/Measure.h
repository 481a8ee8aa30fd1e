// The one measuring helper of the benchmark programs. A road of the library and the raw
// platform sequence that it stands on (and, where one exists, a plain alternative) are
// measured in interleaved rounds after a warm-up; each side keeps the median of its
// rounds, as time per operation.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

constexpr int kRounds = 201;     // rounds of a road whose rounds take well under a millisecond
constexpr int kLongRounds = 15;  // rounds of a road whose every operation takes tens of milliseconds

// One round of one side: the seconds that one operation took, on average over the round.
using Sample = std::function<double()>;

// A round of `operations` calls of operation, timed as a whole; with prepare, each call is
// timed on its own and prepare runs untimed before it.
Sample Batch(int operations, std::function<void()> operation, std::function<void()> prepare = {});

// Medians of the sides, in seconds per operation; plain is 0 when there is none.
struct Comparison {
    double library = 0;
    double platform = 0;
    double plain = 0;
};

Comparison Compare(const Sample& library, const Sample& platform, const Sample& plain = {}, int rounds = kRounds);

// A road at growing sizes: library[i] and platform[i] measure size i. The rounds of all
// sizes are interleaved too, so that every size meets the same conditions of the machine.
std::vector<Comparison> CompareAtSizes(const std::vector<Sample>& library, const std::vector<Sample>& platform,
                                       int rounds = kRounds);

// What a road is measured against, for the printed table.
struct Road {
    std::string name;       // the road
    std::string platform;   // the platform sequence that the library's algorithm performs
    std::string plain;      // the plain alternative, empty when there is none
    double goal = 0;        // the ratio aimed at, 0 when there is none
};

void PrintTitle(const std::string& title);
void PrintHeader();
void PrintRoad(const Road& road, const Comparison& timing);

// A road measured at growing sizes: each side's time per operation at every size, and its
// growth factor from the smallest size to the largest, with the growth aimed at when there is one.
void PrintGrowth(const Road& road, const std::vector<std::string>& sizes, const std::vector<Comparison>& timings,
                 double growthGoal = 0);

// A time as a short text with its unit: "812 ns", "41.3 us", "1.21 ms", "1.30 s".
std::string FormatTime(double seconds);

} // namespace bench
