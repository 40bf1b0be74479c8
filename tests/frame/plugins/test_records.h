// The record of the test plug-in, shared by the frame tests and the plug-in.
#pragma once

#include "algorithm_interface.h"

#include <QString>

#pragma GCC visibility push(default)

// mode: "succeed", "echo", "empty-result", "fail-silent", "fail-with-error", "throw", "long-message",
// "write-raster" (writes `text` block by block, so that a stop request can be tested).
struct TestEchoRecord
{
    QString mode;
    QString text;
    int number = 0;
};

#pragma GCC visibility pop
