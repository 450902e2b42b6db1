#include <dtm/breaklines/CVnc.h>

CVnc::~CVnc() = default;
