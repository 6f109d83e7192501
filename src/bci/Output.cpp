#include "bci/Output.h"

Output::Output(QObject *parent)
    : QObject(parent)
{
}

Output::~Output() = default;
