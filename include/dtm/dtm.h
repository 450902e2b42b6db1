#pragma once

/// @file
/// Everything a host needs: every public header of the terrain-model library.

#include <dtm/support/Events.h>
#include <dtm/support/Export.h>
#include <dtm/support/Geom.h>
#include <dtm/support/IdRemap.h>
#include <dtm/support/IniFile.h>
#include <dtm/support/LibGen.h>
#include <dtm/support/LumoEng.h>
#include <dtm/support/Message.h>
#include <dtm/support/RawIO.h>
#include <dtm/support/RefCounter.h>
#include <dtm/support/Streams.h>
#include <dtm/support/String.h>
#include <dtm/support/Tolerances.h>

#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmEnt.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CDtmPrjOpz.h>
#include <dtm/project/CLibDtm.h>
#include <dtm/project/CLibDtmChangeContext.h>
#include <dtm/project/IDtmPrjManager.h>
#include <dtm/project/IEventListener.h>
#include <dtm/project/TDtmOpz.h>

#include <dtm/network/CCld.h>
#include <dtm/network/COpzTri.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/network/ITris.h>

#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/contours/COpzCvLv.h>
#include <dtm/contours/Spline.h>

#include <dtm/boundaries/CCnt.h>
#include <dtm/boundaries/CCnts.h>

#include <dtm/breaklines/CVnc.h>
#include <dtm/breaklines/CVncs.h>

#include <dtm/colourclasses/CColorClassComputer.h>

#include <dtm/profile/CCalcIntersect.h>
