// SPDX-License-Identifier: MIT
#pragma once

#include "support/quantile.h"

#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <vector>

/// What a benchmark prints: figures beside the limit or the peer that the same run measured. A program
/// takes `--json FILE`, to which each row is appended as one JSON object a line, or with `-` in place of the file
/// printed among the rows, and `--quick` for a run that only shows that it works.
class Report
{
public:
    /// Whether more of a figure is better, which decides how its ratio is made.
    enum class Better { More, Less };

    /// Reads the program's arguments and prints the heading.
    Report(int argc, char **argv, const QString &benchmark);
    /// Prints a remark.
    void note(const QString &text) const;
    /// Prints a figure by itself, such as a count of lost frames.
    void figure(const QString &what, double value, const QString &unit) const;
    /// Prints a figure beside its limit or peer. The ratio is 1 where they are equal, below 1 where
    /// the figure is the worse one.
    void compare(const QString &what, double value, const QString &unit, Better better, const QString &peer,
                 double peerValue) const;
    /// Prints a figure beside that of a peer where a ratio says nothing, such as where both may be 0.
    void beside(const QString &what, double value, const QString &unit, const QString &peer, double peerValue) const;
    /// Whether the run is only to show that it works.
    bool quick() const { return mQuick; }

private:
    void writeBeside(const QString &what, double value, const QString &unit, const QString &peer, double peerValue,
                     std::optional<double> ratio) const;
    void write(const QString &text, QJsonObject row) const;

    QString mBenchmark;
    QString mJsonFile;
    bool mQuick = false;
};

/// Seconds that a call takes.
template <typename Call>
double secondsOf(Call call)
{
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// The median of the results of each call, which returns a measurement. They are called in turn, so that what else the
/// machine does meets all of them.
template <typename... Calls>
std::array<double, sizeof...(Calls)> mediansInTurn(int rounds, Calls... calls)
{
    std::array<std::vector<double>, sizeof...(Calls)> results;
    for (int round = 0; round < rounds; ++round) {
        std::size_t call = 0;
        (results[call++].push_back(calls()), ...);
    }
    std::array<double, sizeof...(Calls)> medians{};
    std::transform(results.begin(), results.end(), medians.begin(), medianOf);
    return medians;
}
