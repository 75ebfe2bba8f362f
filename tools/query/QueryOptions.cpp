#include "QueryOptions.h"

#include <algorithm>
#include <vector>

namespace {

constexpr char kAbout[] = R"(usage: gridloom-query -index BASE QUESTION [options]

Asks the index under BASE. A part is solid in the occupied cells of its octree, cut to its
box; boxes and cells are closed, so that parts which touch meet.

Exit code: 0 found, 1 nothing found, 2 wrong usage, 4 the index is damaged, 5 it can't be
read or the export can't be written.
)";

constexpr unsigned int kMostParts = 1000000;

struct Question {
    const char* name;
    QueryOptions::Question question;
    bool takesValue;
    const char* usage;
};

constexpr Question kQuestions[] = {
    {"id",     QueryOptions::Id,     true,
     "NAME: the part of that identifier, or all that a pattern (* ? [...]) matches"                 },
    {"box",    QueryOptions::InBox,  true,  "x0,y0,z0,x1,y1,z1: the parts whose boxes meet that box"},
    {"point",  QueryOptions::At,     true,  "x,y,z: the parts that are solid there"                 },
    {"near",   QueryOptions::Near,   true,  "x,y,z: the parts nearest to that point"                },
    {"clash",  QueryOptions::Clash,  true,  "NAME: the parts whose solid meets that of the part"    },
    {"list",   QueryOptions::List,   false, "all parts"                                             },
    {"stats",  QueryOptions::Stats,  false, "figures of the whole index"                            },
    {"verify", QueryOptions::Verify, false, "reads everything and tells whether it is sound"        },
};

constexpr const char* kEndings[] = {"", ".png", ".ply", ".vtk"};  // by QueryOptions::Export

void Declare(Arguments& ioArguments) {
    ioArguments.DeclareValue("index", true, "BASE: the folder of the index");
    for (const Question& question : kQuestions) {
        if (question.takesValue) {
            ioArguments.DeclareValue(question.name, false, question.usage);
        } else {
            ioArguments.DeclareFlag(question.name, question.usage);
        }
    }
    ioArguments.DeclareValue("count", false, "K: how many parts -near gives (default: 1)");
    ioArguments.DeclareValue(
        "export", false, "png, ply or vtk: writes the parts found or, without a question, all");
    ioArguments.DeclareValue(
        "output", false, "FILE: of the export (default: index.png, .ply, .vtk)");
    ioArguments.DeclareValue("up", false, "y or z: the axis that points upwards in a picture");
    ioArguments.DeclareFlag("json", "answers for machines");
}

Point PointOf(const std::vector<float>& iNumbers, std::size_t iFirst) {
    return {iNumbers[iFirst], iNumbers[iFirst + 1], iNumbers[iFirst + 2]};
}

void TakePoint(Arguments& ioArguments, const char* iName, QueryOptions& oOptions) {
    std::vector<float> numbers(3, 0.0F);
    ioArguments.GetNumbers(iName, numbers.size(), numbers);
    if (numbers.size() == 3) oOptions.point = PointOf(numbers, 0);
}

void TakeBox(Arguments& ioArguments, QueryOptions& oOptions) {
    std::vector<float> numbers(6, 0.0F);
    ioArguments.GetNumbers("box", numbers.size(), numbers);
    if (numbers.size() != 6) return;
    oOptions.box = {PointOf(numbers, 0), PointOf(numbers, 3)};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (oOptions.box.low[axis] <= oOptions.box.high[axis]) continue;
        return ioArguments.Complain("-box wants its low corner first");
    }
}

void TakeQuestion(Arguments& ioArguments, const Question& iQuestion, QueryOptions& oOptions) {
    oOptions.question = iQuestion.question;
    switch (iQuestion.question) {
        case QueryOptions::Id:
        case QueryOptions::Clash:
            return ioArguments.GetText(iQuestion.name, oOptions.name);
        case QueryOptions::InBox:
            return TakeBox(ioArguments, oOptions);
        case QueryOptions::At:
        case QueryOptions::Near:
            return TakePoint(ioArguments, iQuestion.name, oOptions);
        default:
            return;
    }
}

void TakeQuestions(Arguments& ioArguments, QueryOptions& oOptions) {
    unsigned int count = 0;
    for (const Question& question : kQuestions) {
        if (!Arguments::IsGiven(question.name)) continue;
        if (++count == 1) TakeQuestion(ioArguments, question, oOptions);
    }
    if (count > 1) ioArguments.Complain("more than one question is asked");
    if (count == 0 && !Arguments::IsGiven("export")) ioArguments.Complain("no question is asked");
    if (Arguments::IsGiven("count") && oOptions.question != QueryOptions::Near) {
        ioArguments.Complain("-count belongs to -near");
    }
}

void TakeExport(Arguments& ioArguments, QueryOptions& oOptions) {
    std::size_t choice = 0;
    ioArguments.GetChoice("export", {"png", "ply", "vtk"}, choice);
    if (Arguments::IsGiven("export")) {
        oOptions.exported = static_cast<QueryOptions::Export>(choice + 1);
        oOptions.output = std::string("index") + kEndings[oOptions.exported];
    } else if (Arguments::IsGiven("output") || Arguments::IsGiven("up")) {
        ioArguments.Complain("-output and -up belong to -export");
    }
    ioArguments.GetText("output", oOptions.output);
    std::size_t up = 1;
    ioArguments.GetChoice("up", {"y", "z"}, up);
    oOptions.up = up == 0 ? UpAxis::Y : UpAxis::Z;
    const bool isOfParts =
        oOptions.question != QueryOptions::Stats && oOptions.question != QueryOptions::Verify;
    if (oOptions.exported != QueryOptions::None && !isOfParts) {
        ioArguments.Complain("-stats and -verify give no parts to export");
    }
}

}  // namespace

Arguments::Result ReadQueryOptions(int iCount, char** iArguments, QueryOptions& oOptions) {
    Arguments arguments("gridloom-query", kAbout);
    Declare(arguments);
    const Arguments::Result result = arguments.Read(iCount, iArguments);
    if (result != Arguments::Result::Run) return result;
    if (!arguments.Words().empty()) {
        arguments.Complain("what is " + arguments.Words().front() + " for?");
    }
    arguments.GetText("index", oOptions.base);
    TakeQuestions(arguments, oOptions);
    arguments.GetNumber("count", 1, static_cast<int>(kMostParts), oOptions.count);
    TakeExport(arguments, oOptions);
    oOptions.json = Arguments::IsGiven("json");
    return arguments.GetResult();
}
