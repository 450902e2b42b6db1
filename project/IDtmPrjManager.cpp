#include <dtm/project/IDtmPrjManager.h>

IDtmPrjManager::~IDtmPrjManager() = default;

IDtmPointsProvider::~IDtmPointsProvider() = default;
