#ifndef TableReporter_h
#define TableReporter_h

#include <algorithm>
#include <benchmark/benchmark.h>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

/// A column that is one column over another.
struct RatioColumn {
    std::string title;
    std::string numerator;
    std::string denominator;
};

/// Prints the counters of all benchmarks as one Markdown table. A benchmark is called "row/anything";
/// each of its counters is the column of its name. Rows and columns
/// have to be announced. With repetitions the medians are shown.
class TableReporter : public benchmark::BenchmarkReporter {
public:
    /// @param iRowTitle  heads the first column
    TableReporter(std::string iRowTitle, std::vector<RatioColumn> iRatios)
        : _rowTitle(std::move(iRowTitle)), _ratios(std::move(iRatios)) {}

    /// Fixes the place of a row and a column: benchmarks may run in any order.
    void Announce(const std::string& iRow, const std::vector<std::string>& iColumns) {
        AddOnce(_rows, iRow);
        for (const std::string& column : iColumns) AddOnce(_columns, column);
    }

    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& iRuns) override {
        for (const Run& run : iRuns) {
            if (run.error_occurred)
                std::cerr << run.benchmark_name() << ": " << run.error_message << '\n';
            const bool isResult = run.repetitions <= 1 ? run.run_type == Run::RT_Iteration
                                                       : run.aggregate_name == "median";
            if (isResult && !run.error_occurred) AddRun(run);
        }
    }

    void Finalize() override {
        std::cout << "| " << _rowTitle;
        for (const std::string& column : _columns) std::cout << " | " << column;
        for (const RatioColumn& ratio : _ratios) std::cout << " | " << ratio.title;
        std::cout << " |\n|---" << Repeat("|---:", _columns.size() + _ratios.size()) << "|\n";
        for (const std::string& row : _rows) {
            if (_table.count(row) != 0) PrintRow(row);
        }
    }

private:
    using Cells = std::map<std::string, double>;

    void AddRun(const Run& iRun) {
        const std::string& name = iRun.run_name.function_name;
        Cells& cells = _table[name.substr(0, name.rfind('/'))];
        for (const auto& [column, counter] : iRun.counters) cells[column] = counter.value;
    }

    static void AddOnce(std::vector<std::string>& ioNames, const std::string& iName) {
        if (std::count(ioNames.begin(), ioNames.end(), iName) == 0) ioNames.push_back(iName);
    }

    static std::string Repeat(const std::string& iText, size_t iTimes) {
        std::string all;
        for (size_t i = 0; i < iTimes; i++) all += iText;
        return all;
    }

    static std::string Digits(double iValue) {
        std::ostringstream text;
        text << std::fixed
             << std::setprecision(
                    iValue < 10.0    ? 2
                    : iValue < 100.0 ? 1
                                     : 0)
             << iValue;
        return text.str();
    }

    void PrintRow(const std::string& iRow) {
        const Cells& cells = _table[iRow];
        const auto value = [&cells](const std::string& iColumn) {
            const auto cell = cells.find(iColumn);
            return cell == cells.end() ? -1.0 : cell->second;
        };
        std::cout << "| " << iRow;
        for (const std::string& column : _columns) {
            std::cout << " | " << (value(column) < 0.0 ? "-" : Digits(value(column)));
        }
        for (const RatioColumn& ratio : _ratios) {
            const double over = value(ratio.numerator);
            const double under = value(ratio.denominator);
            std::cout << " | " << (over < 0.0 || under <= 0.0 ? "-" : Digits(over / under));
        }
        std::cout << " |\n";
    }

    std::string _rowTitle;
    std::vector<RatioColumn> _ratios;
    std::vector<std::string> _rows;
    std::vector<std::string> _columns;
    std::map<std::string, Cells> _table;
};

#endif
