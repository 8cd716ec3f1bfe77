// lfx: runs libfilter's effects on pictures and video.
#include "Cli.h"

int main(int argc, char** argv) {
    return lfx::RunCli(argc, argv);
}
