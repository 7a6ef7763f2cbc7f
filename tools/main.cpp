// kivgeo: the command line of the kivgeo surface library.
#include "commands.h"
#include "io_error.h"
#include "progress.h"

#include <cstdio>
#include <new>

int main(int argc, char** argv)
{
    CLI::App app{"kivgeo: build, query and draw triangulated geological surfaces (TINs).\n"
                 "Formats are chosen by extension; run 'kivgeo COMMAND --help' for each command."};
    app.name("kivgeo");
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("kivgeo ") + KIVGEO_VERSION);
    bool bQuiet = false;
    app.add_flag("-q,--quiet", bQuiet, "no progress bars");
    app.footer("Example:\n  kivgeo demo\n  kivgeo tin data/boreholes.xyz -c data/outcrop.pl -o top.ts");

    kivcli::CKivRun run;
    kivcli::AddTinCommand(app, run);
    kivcli::AddInfoCommand(app, run);
    kivcli::AddConvertCommand(app, run);
    kivcli::AddElevCommand(app, run);
    kivcli::AddDrapeCommand(app, run);
    kivcli::AddOutlineCommand(app, run);
    kivcli::AddInterpCommand(app, run);
    kivcli::AddHullCommand(app, run);
    kivcli::AddRenderCommand(app, run);
    kivcli::AddDemoCommand(app, run);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return 2;
    }
    kivcli::CKivProgress::SetEnabled(!bQuiet);
    try {
        return run ? run() : 2;
    } catch (const kivcli::CKivIoError& e) {
        std::fprintf(stderr, "kivgeo: %s\n", e.what());
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "kivgeo: out of memory\n");
        return 3;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kivgeo: %s\n", e.what());
    }
    return 2;
}
