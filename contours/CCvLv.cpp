#include <dtm/contours/CCvLv.h>

CCvLvInterv::~CCvLvInterv() = default;

CCvLv::~CCvLv() = default;
