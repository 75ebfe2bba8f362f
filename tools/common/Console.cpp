#include "Console.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace {

constexpr std::size_t kBarLength = 30;
constexpr std::size_t kLongestLine = 36;  // the bar stays within 80 columns

}  // namespace

Console::Console(std::string iTool, ProgressStyle iStyle, bool iIsQuiet)
    : _tool(std::move(iTool)), _style(iStyle), _isQuiet(iIsQuiet) {}

void Console::ShowProgress(
    double iShare, const std::string& iLine, const std::vector<EventValue>& iEvent) {
    switch (_style) {
        case ProgressStyle::Bar:
            return DrawBar(iShare, iLine);
        case ProgressStyle::Plain:
            std::printf("%s\n", Printable(iLine).c_str());
            std::fflush(stdout);
            return;
        case ProgressStyle::Json:
            return PrintEvent(iEvent);
        case ProgressStyle::Auto:
        case ProgressStyle::None:
            return;
    }
}

void Console::Fail(const std::string& iName, const std::string& iReason) {
    Complain("failed", iName, iReason);
}

void Console::Note(const std::string& iName, const std::string& iNote) {
    if (!_isQuiet) Complain("note", iName, iNote);
}

void Console::ClearBar() {
    if (_barShown) std::fputs("\r\033[K", stderr);
    _barShown = false;
}

void Console::DrawBar(double iShare, const std::string& iLine) {
    const auto filled = static_cast<std::size_t>(iShare * static_cast<double>(kBarLength));
    const std::string bar = std::string(filled, '#') + std::string(kBarLength - filled, '.');
    const std::string line = Printable(iLine).substr(0, kLongestLine);
    std::fprintf(stderr, "\r\033[K[%s] %3.0f%% %s", bar.c_str(), 100.0 * iShare, line.c_str());
    std::fflush(stderr);
    _barShown = true;
}

/// One line; bytes that are no UTF-8 are replaced.
void Console::PrintEvent(const std::vector<EventValue>& iEvent) {
    nlohmann::ordered_json event;
    for (const EventValue& value : iEvent) {
        const auto whole = static_cast<std::int64_t>(value.number);
        if (!value.isNumber) {
            event[value.name] = value.text;
        } else if (static_cast<double>(whole) == value.number) {
            event[value.name] = whole;
        } else {
            event[value.name] = value.number;
        }
    }
    const auto replace = nlohmann::ordered_json::error_handler_t::replace;
    std::printf("%s\n", event.dump(-1, ' ', false, replace).c_str());
    std::fflush(stdout);
}

void Console::Complain(const char* iKind, const std::string& iName, const std::string& iText) {
    ClearBar();
    PrintMessage(_tool, std::string(iKind) + ": " + iName + ": " + iText);
    if (_style == ProgressStyle::Json) {
        PrintEvent({
            {"event",  std::string(iKind)},
            {"name",   iName             },
            {"reason", iText             }
        });
    }
}

void Table::Print() const {
    std::vector<std::size_t> widths(_rows.front().size(), 0);
    for (const auto& row : _rows) {
        for (std::size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], row[c].size());
    }
    for (const auto& row : _rows) {
        std::string line = row[0] + std::string(widths[0] - row[0].size(), ' ');
        for (std::size_t c = 1; c < row.size(); ++c) {
            line += "  " + std::string(widths[c] - row[c].size(), ' ') + row[c];
        }
        std::printf("%s\n", line.c_str());
    }
}

void PrintMessage(const std::string& iTool, const std::string& iText) {
    std::fprintf(stderr, "%s: %s\n", iTool.c_str(), Printable(iText).c_str());
}

std::string Printable(const std::string& iText) {
    constexpr char kDelete = 0x7F;
    std::string text = iText;
    std::replace_if(
        text.begin(), text.end(), [](char c) { return (c >= 0 && c < ' ') || c == kDelete; }, '?');
    return text;
}
