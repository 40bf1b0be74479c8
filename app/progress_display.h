// Progress shown by the command-line host, and Ctrl-C turned into a stop request.
#pragma once

#include "AlgoFactory.h"

namespace cli
{

// Fills result with a callback that draws a bar on a terminal's standard error (plain percentage
// lines otherwise) and answers -1 once Ctrl-C was pressed.
void attachProgress(AlgoResult* result);
// Ends the bar's line, if one was drawn.
void finishProgress();
// Installs the Ctrl-C handler: the first press asks the algorithm to stop, the second ends the process.
void installInterruptHandler();
bool interrupted();

} // namespace cli
