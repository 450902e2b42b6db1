#include <dtm/project/CDtmEnt.h>

CDtmEnt::~CDtmEnt() = default;
