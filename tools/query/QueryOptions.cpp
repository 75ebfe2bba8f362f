#include "QueryOptions.h"

#include "Arguments.h"

#include <algorithm>

namespace {

constexpr int kMostParts = 1000000;

constexpr char kAbout[] =
    "Answers a question from the index under BASE. A part is solid in the occupied cells of "
    "its octree, cut to its box. Boxes and cells are closed: parts that touch meet.";

constexpr const char* kEndings[] = {"", ".png", ".ply", ".vtk"};  // by QueryOptions::Export

Point PointOf(const float* iNumbers) {
    return {iNumbers[0], iNumbers[1], iNumbers[2]};
}

/// The same option; it asks a question, too.
Option Asking(QueryOptions::Question iQuestion, QueryOptions& ioOptions, const Option& iOption) {
    Option option = iOption;
    option.store = [&ioOptions, iQuestion, store = iOption.store](const std::string& value) {
        ioOptions.question = iQuestion;
        return !store || store(value);
    };
    return option;
}

Option PointOption(const Option& iOption, Point& oPoint) {
    const auto store = [&oPoint](const float* numbers) {
        oPoint = PointOf(numbers);
        return true;
    };
    return Numbers(iOption, 3, store);
}

Option BoxOption(const Option& iOption, Box& oBox) {
    const auto store = [&oBox](const float* numbers) {
        oBox = {PointOf(numbers), PointOf(numbers + 3)};
        return std::equal(numbers, numbers + 3, numbers + 3, std::less_equal<>());
    };
    Option option = Numbers(iOption, 6, store);
    option.wanted += ", the low corner first";
    return option;
}

void AddQuestions(QueryOptions& ioOptions, Program& ioProgram) {
    ioProgram.AddGroup("Questions");
    const auto add = [&](QueryOptions::Question question, const Option& option) {
        ioProgram.Add(Asking(question, ioOptions, option));
    };
    const Option id = {
        "id", "NAME",
        "The part of that identifier or, when there is none, all whose identifiers match it as a "
        "shell pattern: `*` for any characters, `/` too, `?` for one, `[...]` for one of some."};
    const Option box = {
        "box", "x0,y0,z0,x1,y1,z1",
        "The parts whose boxes meet that box. Its low corner comes first."};
    const Option point = {"point", "x,y,z", "The parts that are solid there."};
    const Option near = {
        "near", "x,y,z",
        "The parts nearest to that point, as many as `-count` says, nearest first, by the distance "
        "to their nearest solid cell."};
    const Option clash = {"clash", "NAME", "The parts whose solid meets that of the part."};
    const Option verify = {
        "verify", "",
        "Whether the index is sound: the structure of every file, and that identifier, record, "
        "octree and box lead to each other."};
    add(QueryOptions::Id, Text(id, ioOptions.name));
    add(QueryOptions::InBox, BoxOption(box, ioOptions.box));
    add(QueryOptions::At, PointOption(point, ioOptions.point));
    add(QueryOptions::Near, PointOption(near, ioOptions.point));
    add(QueryOptions::Clash, Text(clash, ioOptions.name));
    add(QueryOptions::List, {"list", "", "All parts."});
    add(QueryOptions::Stats, {"stats", "", "Figures of the whole index."});
    add(QueryOptions::Verify, verify);
}

void AddOptions(QueryOptions& ioOptions, Program& ioProgram) {
    ioProgram.AddGroup("Options");
    Option& base = ioProgram.Add(Text({"index", "BASE", "Folder of the index."}, ioOptions.base));
    base.completion = Option::Completion::Folders;
    base.isMandatory = true;
    ioProgram.Add(WholeNumber(
        {"count", "K", "How many parts `-near` gives at most."}, 1, kMostParts, ioOptions.count));
    ioProgram.Add(Flag({"json", "", "One JSON object on the standard output."}, ioOptions.json));
    ioProgram.Add(Choice<QueryOptions::Export>(
        {
            "export", "",
            "Writes the parts of the answer besides or, without a question, all. `png` is a "
            "picture "
            "of all parts, with those of the answer, and the part of `-clash`, in front of the "
            "others "
            "in colours. `ply` and `vtk` are the outer faces of the solid cells of the parts of "
            "the "
            "answer, at most 8 levels deep, with a colour or a number for each part in the order "
            "of "
            "the answer."
    },
        {{"png", QueryOptions::Png}, {"ply", QueryOptions::Ply}, {"vtk", QueryOptions::Vtk}},
        ioOptions.exported));
    Option& output =
        ioProgram.Add(Text({"output", "FILE", "Where the export goes."}, ioOptions.output));
    output.standard = "`index.png`, `index.ply`, `index.vtk`";
    output.completion = Option::Completion::Files;
    ioProgram.Add(Choice<UpAxis>(
        {
            "up", "", "The axis that points upwards in a picture."
    },
        {{"y", UpAxis::Y}, {"z", UpAxis::Z}}, ioOptions.up));
}

/// What of the options doesn't go together; empty: nothing.
std::string Contradiction(const Program& iProgram, const QueryOptions& iOptions) {
    const std::vector<Option>& questions = iProgram.groups.front().options;
    const auto nAsked = std::count_if(
        questions.begin(), questions.end(),
        [](const Option& question) { return Arguments::IsGiven(question.name); });
    const bool isExported = iOptions.exported != QueryOptions::None;
    const bool isOfParts =
        iOptions.question != QueryOptions::Stats && iOptions.question != QueryOptions::Verify;
    if (nAsked > 1) return "more than one question is asked";
    if (nAsked == 0 && !isExported) return "no question is asked";
    if (Arguments::IsGiven("count") && iOptions.question != QueryOptions::Near) {
        return "-count belongs to -near";
    }
    if (!isExported && (Arguments::IsGiven("output") || Arguments::IsGiven("up"))) {
        return "-output and -up belong to -export";
    }
    if (isExported && !isOfParts) return "-stats and -verify give no parts to export";
    return {};
}

}  // namespace

Program QueryProgram(QueryOptions& ioOptions) {
    Program program;
    program.name = "gridloom-query";
    program.arguments = "-index BASE QUESTION [OPTION...]";
    program.about = kAbout;
    AddQuestions(ioOptions, program);
    AddOptions(ioOptions, program);
    program.AddCommonOptions();
    program.AddExit(ExitCode::Done, "Something was found; for `-verify`, the index is sound.");
    program.AddExit(ExitCode::NothingFound, "Nothing was found.");
    program.AddExit(ExitCode::Usage, "Wrong usage.");
    program.AddExit(
        ExitCode::Damaged,
        "The index is damaged. The message names the file or the part, and what is wrong.");
    program.AddExit(
        ExitCode::Environment,
        "The index can't be read, or the answer or the export can't be written.");
    return program;
}

std::optional<ExitCode> ReadQueryOptions(int iCount, char** iArguments, QueryOptions& oOptions) {
    const Program program = QueryProgram(oOptions);
    Arguments arguments(program);
    if (const auto end = arguments.Read(iCount, iArguments)) return end;
    oOptions.tool = program.name;
    if (!arguments.Words().empty()) {
        return arguments.Refuse("'" + arguments.Words().front() + "' is no option");
    }
    const std::string contradiction = Contradiction(program, oOptions);
    if (!contradiction.empty()) return arguments.Refuse(contradiction);
    if (oOptions.output.empty()) {
        oOptions.output = std::string("index") + kEndings[oOptions.exported];
    }
    return {};
}
