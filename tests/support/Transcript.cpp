#include "Transcript.h"

#include "IDX_Status.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

namespace {

using Sections = std::map<std::string, std::string>;

/// All sections of one file, by the name of their test.
Sections ReadSections(const std::string& path) {
    Sections sections;
    std::ifstream file(path);
    std::string test;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('[')) {
            test = line.substr(1, line.size() - 2);
        } else if (!line.empty()) {
            sections[test] += line + '\n';
        }
    }
    return sections;
}

/// The section of a test. The suite of a table carries the name of the table in front.
std::string Expected(const testing::TestInfo& test) {
    const std::string suite = test.test_suite_name();
    const std::string family = suite.substr(suite.find('/') + 1);
    return ReadSections(GRIDLOOM_GOLDEN_FOLDER "/failures/" + family + ".txt")[test.name()];
}

std::string NameOf(long int status) {
    switch (status) {
        case IDX_S_OK:
            return "IDX_S_OK";
        case IDX_S_NOTHING_DONE:
            return "IDX_S_NOTHING_DONE";
        case IDX_E_FAIL:
            return "IDX_E_FAIL";
        case IDX_E_NOT_IMPLEMENTED:
            return "IDX_E_NOT_IMPLEMENTED";
        case IDX_E_OUT_OF_MEMORY:
            return "IDX_E_OUT_OF_MEMORY";
        case IDX_E_INVALID_ARGUMENT:
            return "IDX_E_INVALID_ARGUMENT";
        default:
            return std::to_string(status);
    }
}

}  // namespace

Transcript::Transcript(std::string hidden) : _hidden(std::move(hidden)) {}

Transcript::~Transcript() {
    EXPECT_EQ(_text, Expected(*testing::UnitTest::GetInstance()->current_test_info()));
}

IDX_Bool Transcript::Note(const std::string& operation, IDX_Bool result) {
    Add(operation, result == IDX_True ? "true" : "false");
    return result;
}

long int Transcript::Note(const std::string& operation, long int result) {
    Add(operation, NameOf(result));
    return result;
}

void Transcript::Title(const std::string& text) {
    _text += "-- " + text + '\n';
}

void Transcript::Add(const std::string& operation, const std::string& result) {
    std::string added = operation + ": " + result + '\n';
    for (const std::string& line : _trace.Take()) added += "  " + line + '\n';
    if (!_hidden.empty()) {
        for (std::size_t at; (at = added.find(_hidden)) != std::string::npos;) {
            added.replace(at, _hidden.size(), "DIR");
        }
    }
    _text += added;
}
