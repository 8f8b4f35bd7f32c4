// SPDX-License-Identifier: MIT
#include "softcache/serve/control_commands.h"

#include <errno.h>

#include <algorithm>
#include <charconv>
#include <sstream>

namespace softcache {

struct VerbRow {
    const char* word;
    ControlVerb verb;
    size_t numbers;  // how many follow
    uint64_t least;  // bounds of the last one
    uint64_t greatest;
};

static const VerbRow kVerbs[] = {
    {"refuse-control", ControlVerb::kRefuseControl, 1, 1, UINT32_MAX},
    {"fail-read", ControlVerb::kFailRead, 2, 1, UINT64_MAX},
    {"delay-read", ControlVerb::kDelayRead, 1, 0, UINT32_MAX},
    {"delay-backing", ControlVerb::kDelayBacking, 1, 0, UINT32_MAX},
    {"clear-faults", ControlVerb::kClearFaults, 0, 0, 0},
    {"reset-counters", ControlVerb::kResetCounters, 0, 0, 0},
    {"support-pin", ControlVerb::kSupportPin, 1, 0, 1},
    {"state", ControlVerb::kState, 1, 0, INT32_MAX},
};

static bool ParseNumber(const std::string& word, uint64_t& number) {
    const char* end = word.data() + word.size();
    const auto [rest, error] = std::from_chars(word.data(), end, number);
    return error == std::errc() && rest == end;
}

static bool ParseLine(const std::string& line, ControlCommand& command) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    for (const VerbRow& row : kVerbs) {
        if (word != row.word) {
            continue;
        }
        command = {row.verb, {0, 0}};
        for (size_t i = 0; i < row.numbers; ++i) {
            if (!(words >> word) || !ParseNumber(word, command.numbers[i])) {
                return false;
            }
        }
        const uint64_t last = row.numbers == 0 ? 0 : command.numbers[row.numbers - 1];
        return last >= row.least && last <= row.greatest && !(words >> word);
    }
    return false;
}

bool ParseControlText(const std::string& text, std::vector<ControlCommand>& commands) {
    std::vector<ControlCommand> parsed;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) {
            continue;
        }
        ControlCommand command;
        if (!ParseLine(line, command)) {
            return false;
        }
        parsed.push_back(command);
    }
    commands = std::move(parsed);
    return true;
}

int ApplyControlCommand(const ControlCommand& command, ServedCache& served) {
    const uint64_t first = command.numbers[0];
    switch (command.verb) {
        case ControlVerb::kRefuseControl:
            served.faults.RefuseControl(first);
            return 0;
        case ControlVerb::kFailRead:
            served.faults.FailRead(first, command.numbers[1]);
            return 0;
        case ControlVerb::kDelayRead:
            served.faults.DelayReads(static_cast<uint32_t>(first));
            return 0;
        case ControlVerb::kDelayBacking:
            served.faults.DelayBacking(static_cast<uint32_t>(first));
            return 0;
        case ControlVerb::kClearFaults:
            served.faults.Clear();
            return 0;
        case ControlVerb::kResetCounters:
            served.cache.ResetCounters();
            served.record.Reset();
            return 0;
        case ControlVerb::kSupportPin:
            return served.registry.SetSupportPin(first == 1);
        case ControlVerb::kState:
            return served.registry.SetState(static_cast<int32_t>(first));
    }
    return -EINVAL;
}

static bool IsTestDoor(const ControlCommand& command) {
    switch (command.verb) {
        case ControlVerb::kRefuseControl:
        case ControlVerb::kFailRead:
        case ControlVerb::kDelayRead:
        case ControlVerb::kDelayBacking:
        case ControlVerb::kClearFaults:
            return true;
        default:
            return false;
    }
}

int RunControlText(const std::string& text, ServedCache& served) {
    std::vector<ControlCommand> commands;
    if (!ParseControlText(text, commands)) {
        return -EINVAL;
    }
    if (!served.testDoors && std::any_of(commands.begin(), commands.end(), IsTestDoor)) {
        return -EPERM;
    }
    for (const ControlCommand& command : commands) {
        const int result = ApplyControlCommand(command, served);
        if (result != 0) {
            return result;
        }
    }
    return 0;
}

}  // namespace softcache
