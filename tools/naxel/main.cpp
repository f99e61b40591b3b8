/// naxel: compiles rule files into the tables of a chip in software, and shows, checks and explains
/// what came out.

#include "command/Program.h"

int main(int argc, char** argv) { return static_cast<int>(NaxelTool::runProgram(argc, argv)); }
