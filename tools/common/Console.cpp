#include "Console.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace {

constexpr std::size_t kBarLength = 30;
constexpr std::size_t kLongestName = 36;  // the bar stays within 80 columns

}  // namespace

Console::Console(std::size_t iFiles) : _onTerminal(isatty(STDERR_FILENO) != 0), _nFiles(iFiles) {}

void Console::StartFile(const std::string& iName) {
    DrawBar(static_cast<double>(_nStarted), iName);
    ++_nStarted;
}

void Console::StartPart(const std::string& iName, std::size_t iPart, std::size_t iParts) {
    if (_onTerminal) {
        const double done = static_cast<double>(iPart) / static_cast<double>(iParts);
        DrawBar(static_cast<double>(_nStarted - 1) + done, iName);
        return;
    }
    std::printf(
        "[file %zu of %zu, part %zu of %zu] %s\n", _nStarted, _nFiles, iPart + 1, iParts,
        Printable(iName).c_str());
    std::fflush(stdout);
}

void Console::Fail(const std::string& iName, const std::string& iReason) {
    Complain("failed", iName, iReason);
}

void Console::Note(const std::string& iName, const std::string& iNote) {
    Complain("note", iName, iNote);
}

void Console::ClearBar() {
    if (_barShown) std::fputs("\r\033[K", stderr);
    _barShown = false;
}

void Console::DrawBar(double iFilesDone, const std::string& iName) {
    if (!_onTerminal) return;
    const double share = iFilesDone / static_cast<double>(std::max<std::size_t>(1, _nFiles));
    const auto filled = static_cast<std::size_t>(share * static_cast<double>(kBarLength));
    const std::string bar = std::string(filled, '#') + std::string(kBarLength - filled, '.');
    const std::string name = Printable(iName).substr(0, kLongestName);
    std::fprintf(stderr, "\r\033[K[%s] %3.0f%% %s", bar.c_str(), 100.0 * share, name.c_str());
    std::fflush(stderr);
    _barShown = true;
}

void Console::Complain(const char* iKind, const std::string& iName, const std::string& iText) {
    ClearBar();
    std::fprintf(
        stderr, "gridloom-index: %s: %s: %s\n", iKind, Printable(iName).c_str(),
        Printable(iText).c_str());
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

std::string Printable(const std::string& iText) {
    constexpr char kDelete = 0x7F;
    std::string text = iText;
    std::replace_if(
        text.begin(), text.end(), [](char c) { return (c >= 0 && c < ' ') || c == kDelete; }, '?');
    return text;
}
