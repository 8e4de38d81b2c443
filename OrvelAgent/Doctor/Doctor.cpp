#include "OrvelAgent/Doctor/Doctor.h"

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "OrvelKit/Base/Json.h"
#include "OrvelKit/Base/Printable.h"

namespace orvel {

namespace {

using Level = Finding::Level;

// Shared with the threads of the checks, which may outlive the examination.
struct Examination {
    explicit Examination(std::size_t count) : reports(count), returned(count) {}
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::optional<std::vector<Finding>>> reports;
    std::vector<char> returned;

    bool hasAll() const {
        return std::all_of(reports.begin(), reports.end(), [](auto& one) { return !!one; });
    }
    bool isOver() const {
        return std::all_of(returned.begin(), returned.end(), [](char one) { return one != 0; });
    }
};

const char* nameOf(Level level) {
    switch (level) {
        case Level::ok:
            return "ok";
        case Level::warning:
            return "warning";
        case Level::problem:
            break;
    }
    return "problem";
}

std::string counted(std::ptrdiff_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

}  // namespace

bool Diagnosis::hasProblems() const {
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& one) { return one.level == Level::problem; });
}

Diagnosis examine(std::vector<Check> checks, Duration limit) {
    const auto shared = std::make_shared<Examination>(checks.size());
    for (std::size_t i = 0; i < checks.size(); ++i) {
        std::thread([shared, i, look = checks[i].look] {
            look([&](std::vector<Finding> findings) {
                const std::lock_guard hold(shared->mutex);
                shared->reports[i] = std::move(findings);
                shared->changed.notify_all();
            });
            const std::lock_guard hold(shared->mutex);
            shared->returned[i] = 1;
            shared->changed.notify_all();
        }).detach();
    }
    Diagnosis diagnosis;
    std::unique_lock hold(shared->mutex);
    shared->changed.wait_for(hold, limit, [&] { return shared->hasAll(); });
    for (std::size_t i = 0; i < checks.size(); ++i) {
        if (const auto& report = shared->reports[i]) {
            diagnosis.findings.insert(diagnosis.findings.end(), report->begin(), report->end());
        } else {
            diagnosis.findings.push_back(
                {Level::warning, checks[i].subject, "gives no answer in time",
                 "Look again; if it stays so, the service behind it hangs."});
        }
    }
    // Mostly there is nothing to tidy up, and then it is done at once.
    constexpr auto tidyingTime = std::chrono::milliseconds(100);
    diagnosis.isUnfinished =
        !shared->changed.wait_for(hold, tidyingTime, [&] { return shared->isOver(); });
    return diagnosis;
}

std::vector<std::string> diagnosisLines(const std::vector<Finding>& findings) {
    std::vector<std::string> lines;
    std::size_t width = 0;
    for (const Finding& finding : findings)
        width = std::max(width, finding.subject.size() + 2);
    constexpr std::size_t levelWidth = 9;
    for (const Finding& finding : findings) {
        lines.push_back(padded(nameOf(finding.level), levelWidth) + padded(finding.subject, width) +
                        printable(finding.text));
        if (!finding.advice.empty()) {
            lines.push_back(std::string(levelWidth + width, ' ') + "> " +
                            printable(finding.advice));
        }
    }
    const auto count = [&](Level level) {
        return std::count_if(findings.begin(), findings.end(),
                             [&](const Finding& one) { return one.level == level; });
    };
    lines.push_back(counted(count(Level::problem), "problem") + ", " +
                    counted(count(Level::warning), "warning") + ".");
    return lines;
}

std::string findingLine(const Finding& finding) {
    JsonWriter json;
    json.beginObject();
    json.key("check");
    json.string(finding.subject);
    json.key("level");
    json.string(nameOf(finding.level));
    json.key("text");
    json.string(finding.text);
    if (!finding.advice.empty()) {
        json.key("advice");
        json.string(finding.advice);
    }
    json.endObject();
    return json.take();
}

}  // namespace orvel
