#include "Measure.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>

namespace bench {

namespace {

constexpr int kWarmUpRounds = 1;

double Now()
{
    static const double frequency = [] {
        LARGE_INTEGER value;
        ::QueryPerformanceFrequency(&value);
        return static_cast<double>(value.QuadPart);
    }();
    LARGE_INTEGER counter;
    ::QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) / frequency;
}

double Median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double Ratio(double numerator, double denominator)
{
    return denominator > 0 ? numerator / denominator : 0;
}

// The median of every side's rounds. Every other round runs the sides in reverse, so that
// no side always goes first.
std::vector<double> Medians(const std::vector<Sample>& sides, int rounds)
{
    std::vector<std::vector<double>> seconds(sides.size());
    for (int round = 0; round < kWarmUpRounds + rounds; ++round) {
        for (size_t step = 0; step < sides.size(); ++step) {
            const size_t side = round % 2 ? sides.size() - 1 - step : step;
            const double taken = sides[side]();
            if (round >= kWarmUpRounds)
                seconds[side].push_back(taken);
        }
    }
    std::vector<double> medians;
    for (const std::vector<double>& side : seconds)
        medians.push_back(Median(side));
    return medians;
}

} // namespace

Sample Batch(int operations, std::function<void()> operation, std::function<void()> prepare)
{
    return [=] {
        double elapsed = 0;
        if (prepare) {
            for (int index = 0; index < operations; ++index) {
                prepare();
                const double start = Now();
                operation();
                elapsed += Now() - start;
            }
        } else {
            const double start = Now();
            for (int index = 0; index < operations; ++index)
                operation();
            elapsed = Now() - start;
        }
        return elapsed / operations;
    };
}

Comparison Compare(const Sample& library, const Sample& platform, const Sample& plain, int rounds)
{
    std::vector<Sample> sides = {library, platform};
    if (plain)
        sides.push_back(plain);
    const std::vector<double> medians = Medians(sides, rounds);
    Comparison result;
    result.library = medians[0];
    result.platform = medians[1];
    if (plain)
        result.plain = medians[2];
    return result;
}

std::vector<Comparison> CompareAtSizes(const std::vector<Sample>& library, const std::vector<Sample>& platform,
                                       int rounds)
{
    std::vector<Sample> sides;
    for (size_t size = 0; size < library.size(); ++size) {
        sides.push_back(library[size]);
        sides.push_back(platform[size]);
    }
    const std::vector<double> medians = Medians(sides, rounds);
    std::vector<Comparison> results(library.size());
    for (size_t size = 0; size < results.size(); ++size) {
        results[size].library = medians[2 * size];
        results[size].platform = medians[2 * size + 1];
    }
    return results;
}

std::string FormatTime(double seconds)
{
    char text[32];
    if (seconds < 1e-6)
        std::snprintf(text, sizeof text, "%.0f ns", seconds * 1e9);
    else if (seconds < 1e-3)
        std::snprintf(text, sizeof text, "%.3g us", seconds * 1e6);
    else if (seconds < 1)
        std::snprintf(text, sizeof text, "%.3g ms", seconds * 1e3);
    else
        std::snprintf(text, sizeof text, "%.3g s", seconds);
    return text;
}

void PrintTitle(const std::string& title)
{
    std::printf("\n== %s\n", title.c_str());
    std::printf("per operation, the median of %d interleaved rounds (%d for walks and loads)\n", kRounds, kLongRounds);
    std::fflush(stdout);
}

void PrintHeader()
{
    std::printf("%-46s %10s %10s %8s %6s\n", "road", "library", "platform", "ratio", "goal");
    std::fflush(stdout);
}

void PrintRoad(const Road& road, const Comparison& timing)
{
    char goal[16] = "";
    if (road.goal > 0)
        std::snprintf(goal, sizeof goal, "%.1fx", road.goal);
    std::printf("%-46s %10s %10s %7.2fx %6s\n", road.name.c_str(), FormatTime(timing.library).c_str(),
                FormatTime(timing.platform).c_str(), Ratio(timing.library, timing.platform), goal);
    std::printf("    platform: %s\n", road.platform.c_str());
    if (!road.plain.empty())
        std::printf("    plain:    %s %s, the road takes %.2fx\n", road.plain.c_str(), FormatTime(timing.plain).c_str(),
                    Ratio(timing.library, timing.plain));
    std::fflush(stdout);
}

void PrintGrowth(const Road& road, const std::vector<std::string>& sizes, const std::vector<Comparison>& timings,
                 double growthGoal)
{
    std::printf("%s\n", road.name.c_str());
    std::printf("    %-12s", "");
    for (const std::string& size : sizes)
        std::printf(" %10s", size.c_str());
    std::printf(" %8s", "growth");
    if (growthGoal > 0)
        std::printf(" (goal: %.1fx)", growthGoal);
    std::printf("\n");
    auto printSide = [&](const char* label, double Comparison::*side) {
        std::printf("    %-12s", label);
        for (const Comparison& timing : timings)
            std::printf(" %10s", FormatTime(timing.*side).c_str());
        std::printf(" %7.2fx\n", Ratio(timings.back().*side, timings.front().*side));
    };
    printSide("library", &Comparison::library);
    printSide("platform", &Comparison::platform);
    std::printf("    platform: %s\n", road.platform.c_str());
    std::fflush(stdout);
}

} // namespace bench
