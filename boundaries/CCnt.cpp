#include <dtm/boundaries/CCnt.h>

CCnt::~CCnt() = default;
