// The command-line host of the terrain-model library: parses the command line, runs one
// command, and turns failures into one line on standard error and a non-zero exit status.

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <functional>
#include <iostream>
#include <new>

#include "Commands.h"
#include "ToolError.h"

namespace {

// Exit statuses: 0 done, 1 a problem with the input (named in the message), 2 a command line
// that does not parse, 3 a failure of the program itself.
constexpr int kInputProblem = 1;
constexpr int kUsageProblem = 2;
constexpr int kInternalProblem = 3;

using Command = std::function<int()>;

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
    std::vector<double> numbers;
    double x = 0.0;
    double y = 0.0;
    dtmtool::ContourSettings contours;
    dtmtool::RenderOptions render;
};

void AddDocumentCommands(CLI::App& app, Command& command, Arguments& a) {
    CLI::App* import = app.add_subcommand("import", "Read the TIN surfaces of a LandXML file");
    import->add_option("FILE.xml", a.input, "LandXML file")->required();
    import->add_option("-o,--output", a.output, "Document to write")->required();
    import->callback(
        [&] { command = [&] { return dtmtool::RunImport(a.input, a.output, std::cout);
};
}  // namespace
);

CLI::App* exporter = app.add_subcommand("export", "Write the projects as LandXML surfaces");
exporter->add_option("DOC.dtm", a.input, "Document")->required();
exporter->add_option("-o,--output", a.output, "LandXML file to write")->required();
exporter->callback([&] {
    command = [&] { return dtmtool::RunExport(a.input, a.output, std::cout); };
});

CLI::App* info = app.add_subcommand("info", "Describe what a document holds");
info->add_option("DOC.dtm", a.input, "Document")->required();
info->callback([&] { command = [&] { return dtmtool::RunInfo(a.input, std::cout); }; });
}

void AddQueryCommands(CLI::App& app, Command& command, Arguments& a) {
    CLI::App* elev = app.add_subcommand(
        "elev", "Elevation at X Y, or at every x,y line of standard input (CSV out)");
    elev->add_option("DOC.dtm", a.input, "Document")->required();
    // Two single positionals rather than one of two values: CLI11 takes a variable number of
    // values after "--" for none of them.
    CLI::Option* x = elev->add_option("X", a.x, "Easting of the point");
    CLI::Option* y = elev->add_option("Y", a.y, "Northing of the point");
    elev->add_option("--project", a.project, "Ask only this project");
    elev->callback([&, x, y] {
        if (x->count() != y->count())
            throw CLI::ValidationError("X Y", "give both X and Y, or neither");
        const bool hasPoint = x->count() > 0;
        command = [&, hasPoint] {
            std::optional<kor::geom::PNT_2D> point;
            if (hasPoint) point = kor::geom::PNT_2D(a.x, a.y);
            return dtmtool::RunElev(a.input, point, a.project, std::cin, std::cout);
        };
    });

    CLI::App* profile = app.add_subcommand(
        "profile", "Profile along X1 Y1 -> X2 Y2 as CSV of distance, x, y, elevation");
    profile->add_option("DOC.dtm", a.input, "Document")->required();
    profile->add_option("X1 Y1 X2 Y2", a.numbers, "Plan segment")->expected(4)->required();
    profile->add_option("--project", a.project, "Project (default: the active one)");
    profile->callback([&] {
        command = [&] {
            const kor::geom::LINE_2D line(kor::geom::PNT_2D(a.numbers[0], a.numbers[1]),
                                          kor::geom::PNT_2D(a.numbers[2], a.numbers[3]));
            return dtmtool::RunProfile(a.input, line, a.project, std::cout);
        };
    });
}

void AddDrawingCommands(CLI::App& app, Command& command, Arguments& a) {
    CLI::App* contours = app.add_subcommand(
        "contours", "Trace, smooth, label and store contour lines in the document");
    contours->add_option("DOC.dtm", a.input, "Document")->required();
    contours->add_option("--interval", a.contours.interval, "Elevation between lines")
        ->required()
        ->check(CLI::PositiveNumber);
    contours
        ->add_option("--index-every", a.contours.labelEvery,
                     "Every n-th line is a labelled index line")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    contours->add_option("--text-height", a.contours.textHeight,
                         "Label height in plan units (default: from the extent)");
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
    render->add_option("--width", a.render.width, "Picture width in pixels")
        ->capture_default_str()
        ->check(CLI::Range(200, 20000));
    render->add_option("--title", a.render.title, "Title line (default: the projects' names)");
    render->callback([&] {
        command = [&] { return dtmtool::RunRender(a.input, a.output, a.render, std::cout); };
    });

    CLI::App* undo = app.add_subcommand("undo-demo", "Undo and redo an edit of a sample library");
    undo->callback([&] { command = [&] { return dtmtool::RunUndoDemo(std::cout); }; });
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("dtm: terrain models from surveys: import, query, contour and draw them", "dtm");
    app.require_subcommand(1);
    Arguments arguments;
    Command command;
    AddDemo(app, command, arguments.folder);
    AddDocumentCommands(app, command, arguments);
    AddQueryCommands(app, command, arguments);
    AddDrawingCommands(app, command, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kUsageProblem;
    }

    try {
        return command();
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
