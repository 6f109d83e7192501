#include "server/Colleague.h"

Colleague::~Colleague() = default;

void Colleague::notify(Colleague *, QString)
{
}
