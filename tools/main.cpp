// The command-line host of the terrain-model library: parses the command line, runs one
// command, and turns failures into one line on standard error and a non-zero exit status.

#include <CLI/CLI.hpp>

#include <cctype>
#include <charconv>
#include <cstdio>
#include <exception>
#include <functional>
#include <iostream>
#include <limits>
#include <new>

#include "Commands.h"
#include "TextFormat.h"
#include "ToolError.h"
#include "UsageError.h"

namespace {

// Exit statuses: 0 done, 1 a problem with the input (named in the message), 2 a command line
// that does not parse or asks for something the command cannot do, 3 a failure of the program
// itself.
constexpr int kInputProblem = 1;
constexpr int kUsageProblem = 2;
constexpr int kInternalProblem = 3;

using Command = std::function<int()>;

// The checks of the values on the command line. CLI11 runs them on the text before converting
// it and reports a failure as "NAME: message"; each message here is a predicate starting with
// "must", which UsageLine joins to the name as one sentence ("--interval must be a positive
// number, not '0'"). Each reads the whole text strictly (ReadNumber, from_chars), so that what
// it accepts CLI11's own conversion accepts as well.

// "must ..., not 'text'".
std::string Refusal(const std::string& requirement, const std::string& text) {
    return "must be " + requirement + ", not " + dtmtool::QuotedForMessage(text);
}

// A coordinate: "inf", "nan", numbers beyond a double's range and numbers too far from zero
// for the sums a profile or an elevation is made of make no point.
CLI::Validator CoordinateNumber() {
    return CLI::Validator(
        [](const std::string& text) {
            double value = 0.0;
            return dtmtool::ReadCoordinate(text, value)
                       ? std::string()
                       : Refusal("a number within 1e15 of zero", text);
        },
        "COORDINATE");
}

CLI::Validator PositiveNumber() {
    return CLI::Validator(
        [](const std::string& text) {
            double value = 0.0;
            return dtmtool::ReadNumber(text, value) == dtmtool::NumberText::Finite && value > 0.0
                       ? std::string()
                       : Refusal("a positive number", text);
        },
        "POSITIVE");
}

// A whole number from @p least to @p most (no upper bound when @p most is the largest int).
CLI::Validator WholeNumber(int least, int most = std::numeric_limits<int>::max()) {
    const std::string range = most == std::numeric_limits<int>::max()
                                  ? "of at least " + std::to_string(least)
                                  : "from " + std::to_string(least) + " to " + std::to_string(most);
    return CLI::Validator(
        [=](const std::string& text) {
            int value = 0;
            const char* end = text.data() + text.size();
            const std::from_chars_result read = std::from_chars(text.data(), end, value);
            const bool whole = !text.empty() && read.ec == std::errc() && read.ptr == end;
            return whole && value >= least && value <= most
                       ? std::string()
                       : Refusal("a whole number " + range, text);
        },
        "");
}

void AddDemo(CLI::App& app, Command& command, std::string& folder) {
    CLI::App* demo = app.add_subcommand(
        "demo", "Build a sample terrain, contour it, save, re-read and draw it (demo.svg)");
    demo->add_option("--dir", folder, "Folder for demo.dtm and demo.svg")->capture_default_str();
    demo->callback([&] { command = [&] { return dtmtool::RunDemo(folder, std::cout); }; });
}

struct Arguments {
    std::string folder = ".";
    std::string input;
    std::string output;
    std::string project;
    double x1 = 0.0, y1 = 0.0, x2 = 0.0, y2 = 0.0;
    dtmtool::ContourSettings contours;
    dtmtool::RenderOptions render;
};

void AddDocumentCommands(CLI::App& app, Command& command, Arguments& a) {
    // Not named "import": clang-format takes that for a module import and mangles the block.
    CLI::App* importer = app.add_subcommand("import", "Read the TIN surfaces of a LandXML file");
    importer->add_option("FILE.xml", a.input, "LandXML file")->required();
    importer->add_option("-o,--output", a.output, "Document to write")->required();
    importer->callback(
        [&] { command = [&] { return dtmtool::RunImport(a.input, a.output, std::cout); }; });

    CLI::App* exporter = app.add_subcommand("export", "Write the projects as LandXML surfaces");
    exporter->add_option("DOC.dtm", a.input, "Document")->required();
    exporter->add_option("-o,--output", a.output, "LandXML file to write")->required();
    exporter->add_option("--project", a.project, "Only this project");
    exporter->callback([&] {
        command = [&] { return dtmtool::RunExport(a.input, a.project, a.output, std::cout); };
    });

    CLI::App* info = app.add_subcommand("info", "Describe what a document holds");
    info->add_option("DOC.dtm", a.input, "Document")->required();
    info->callback([&] { command = [&] { return dtmtool::RunInfo(a.input, std::cout); }; });
}

// Adds the positional coordinate @p name. Each coordinate is a positional of its own rather
// than one option of several values: CLI11 then names the one that is wrong, and it takes a
// variable number of values after "--" (needed before a negative one) for none of them.
CLI::Option* AddCoordinate(CLI::App& command, const std::string& name, double& value,
                           const std::string& meaning) {
    return command.add_option(name, value, meaning)->check(CoordinateNumber());
}

void AddQueryCommands(CLI::App& app, Command& command, Arguments& a) {
    CLI::App* elev = app.add_subcommand(
        "elev", "Elevation at X Y, or at every x,y line of standard input (CSV out)");
    elev->add_option("DOC.dtm", a.input, "Document")->required();
    CLI::Option* x = AddCoordinate(*elev, "X", a.x1, "Easting of the point");
    CLI::Option* y = AddCoordinate(*elev, "Y", a.y1, "Northing of the point");
    elev->add_option("--project", a.project, "Ask only this project");
    elev->footer(
        "Without X Y, standard input is a list of points, one x,y per line: commas,\n"
        "semicolons, tabs or spaces between the two, each may stand in double quotes.\n"
        "Blank lines and lines starting with # are skipped. A first line without a\n"
        "number is a header, echoed with \",z\" added; otherwise the answer starts\n"
        "with x,y,z. Any other line that is not two numbers within 1e15 of zero is\n"
        "an error.");
    elev->callback([&, x, y] {
        if (x->count() != y->count()) throw CLI::ValidationError("give both X and Y, or neither");
        const bool hasPoint = x->count() > 0;
        command = [&, hasPoint] {
            std::optional<kor::geom::PNT_2D> point;
            if (hasPoint) point = kor::geom::PNT_2D(a.x1, a.y1);
            return dtmtool::RunElev(a.input, point, a.project, std::cin, std::cout);
        };
    });

    CLI::App* profile = app.add_subcommand(
        "profile", "Profile along X1 Y1 -> X2 Y2 as CSV of distance, x, y, elevation");
    profile->add_option("DOC.dtm", a.input, "Document")->required();
    AddCoordinate(*profile, "X1", a.x1, "Easting of the start")->required();
    AddCoordinate(*profile, "Y1", a.y1, "Northing of the start")->required();
    AddCoordinate(*profile, "X2", a.x2, "Easting of the end")->required();
    AddCoordinate(*profile, "Y2", a.y2, "Northing of the end")->required();
    profile->add_option("--project", a.project, "Project (default: the active one)");
    profile->footer(
        "A row for each end and each crossing of a triangle edge; rows less than 1e-6\n"
        "apart along the line are one row. Where the line leaves the surface between\n"
        "two rows (a gap between pieces of the network, a hole), a row with an empty\n"
        "elevation is put halfway, so that a plot breaks the line there.");
    profile->callback([&] {
        command = [&] {
            const kor::geom::LINE_2D line(kor::geom::PNT_2D(a.x1, a.y1),
                                          kor::geom::PNT_2D(a.x2, a.y2));
            return dtmtool::RunProfile(a.input, line, a.project, std::cout);
        };
    });
}

void AddDrawingCommands(CLI::App& app, Command& command, Arguments& a) {
    CLI::App* contours = app.add_subcommand(
        "contours", "Trace, smooth, label and store contour lines in the document");
    contours->add_option("DOC.dtm", a.input, "Document")->required();
    // Left out, the interval stays 0, which asks for a round one chosen from each project's
    // elevations.
    contours
        ->add_option("--interval", a.contours.interval,
                     "Elevation between lines (default: a round one giving 10 to 20 steps)")
        ->check(PositiveNumber());
    contours
        ->add_option("--index-every", a.contours.labelEvery,
                     "Every n-th line (n at least 1) is a labelled index line")
        ->capture_default_str()
        ->check(WholeNumber(1));
    // Left out, the height stays 0, which asks for one chosen from the network's extent.
    contours
        ->add_option("--text-height", a.contours.textHeight,
                     "Label height in plan units (default: from the extent)")
        ->check(PositiveNumber());
    contours->add_option("--project", a.project, "Only this project");
    contours->add_option("-o,--output", a.output, "Write here instead of back to DOC.dtm");
    contours->callback([&] {
        command = [&] {
            return dtmtool::RunContours(a.input, a.contours, a.project, a.output, std::cout);
        };
    });

    CLI::App* render = app.add_subcommand("render", "Draw the document as an SVG picture");
    render->add_option("DOC.dtm", a.input, "Document")->required();
    render->add_option("-o,--output", a.output, "SVG file to write")->required();
    render->add_option("--width", a.render.width, "Picture width in pixels, 200 to 20000")
        ->capture_default_str()
        ->check(WholeNumber(200, 20000));
    render->add_option("--title", a.render.title, "Title line (default: the projects' names)");
    render->callback([&] {
        command = [&] { return dtmtool::RunRender(a.input, a.output, a.render, std::cout); };
    });

    CLI::App* undo = app.add_subcommand("undo-demo", "Undo and redo an edit of a sample library");
    undo->callback([&] { command = [&] { return dtmtool::RunUndoDemo(std::cout); }; });
}

std::string CommandNames(CLI::App& app) {
    std::string names;
    for (const CLI::App* command : app.get_subcommands([](CLI::App*) { return true; }))
        names += (names.empty() ? "" : ", ") + command->get_name();
    return names;
}

// The line for an argument that no command or option took: @p argument after @p chosen (the
// command given, or null).
std::string UnexpectedLine(CLI::App& app, const CLI::App* chosen, const std::string& argument) {
    const std::string quoted = dtmtool::QuotedForMessage(argument);
    if (chosen == nullptr) {
        if (!argument.empty() && argument[0] == '-') return "unknown option " + quoted;
        return "unknown command " + quoted + "; the commands are " + CommandNames(app);
    }
    const std::string after = " for '" + chosen->get_name() + "'";
    if (argument.size() > 1 && argument[0] == '-' &&
        !std::isdigit(static_cast<unsigned char>(argument[1])))
        return "unknown option " + quoted + after;
    return "unexpected argument " + quoted + after;
}

// CLI11's own text for @p error made one sentence that starts with what it is about.
std::string ReworkedMessage(CLI::App& app, const CLI::ParseError& error) {
    const std::string text = error.what();
    if (text == "A subcommand is required")
        return "a command is needed; the commands are " + CommandNames(app);
    const std::size_t colon = text.find(": ");
    if (colon == std::string::npos) return text;
    const std::string name = text.substr(0, colon);
    const std::string rest = text.substr(colon + 2);
    // Our validators' predicates, and CLI11's two ways of saying that an option's value is
    // missing or given twice.
    if (rest.rfind("must ", 0) == 0) return name + " " + rest;
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error)) {
        if (rest.find("missing") != std::string::npos) return name + " needs a value";
        if (rest.find("At Most") != std::string::npos) return name + " is given more than once";
    }
    return text;
}

// The one line that says what is wrong with the command line. Arguments that nothing took come
// first: CLI11 checks for missing arguments before it reports unexpected ones, and "dtm bogus"
// would otherwise read "a command is needed", "dtm elev --bogus" "DOC.dtm is required".
std::string UsageLine(CLI::App& app, const CLI::ParseError& error) {
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    for (const std::string& argument : app.remaining(true))
        if (argument != "--")  // CLI11 keeps the mark that ends the options among them
            return UnexpectedLine(app, chosen.empty() ? nullptr : chosen.front(), argument);
    return ReworkedMessage(app, error);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("dtm: terrain models from surveys: import, query, contour and draw them", "dtm");
    app.require_subcommand(1);
    app.set_version_flag("--version", "dtm " DTM_VERSION, "Print the version and exit");
    Arguments arguments;
    Command command;
    AddDemo(app, command, arguments.folder);
    AddDocumentCommands(app, command, arguments);
    AddQueryCommands(app, command, arguments);
    AddDrawingCommands(app, command, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& done) {
        return app.exit(done);  // --help, --version
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "dtm: %s\n", UsageLine(app, error).c_str());
        return kUsageProblem;
    }

    try {
        return command();
    } catch (const dtmtool::UsageError& error) {
        std::cout.flush();
        std::fprintf(stderr, "dtm: %s\n", error.what());
        return kUsageProblem;
    } catch (const dtmtool::ToolError& error) {
        std::cout.flush();
        std::fprintf(stderr, "dtm: %s\n", error.what());
        return kInputProblem;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "dtm: out of memory\n");
        return kInternalProblem;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "dtm: internal error: %s\n", error.what());
        return kInternalProblem;
    }
}
