// The command line: parses it with CLI11, runs the subcommand and turns every failure into one
// line on standard error and a non-zero exit code.
#pragma once

namespace lfx {

int RunCli(int argc, char** argv);

}  // namespace lfx
