#include <dtm/project/TDtmOpz.h>

#include <dtm/contours/CCvLvs.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CDtmPrjOpz.h>
#include <dtm/support/Events.h>

#include <cstdint>
#include <stdexcept>

namespace {

void RequireProject(const CDtmPrj* prj) {
    if (prj == nullptr) throw std::invalid_argument("TDtmOpz: null project");
}

}  // namespace

void TDtmOpz::GetFromPrj(const CDtmPrj* prj) {
    RequireProject(prj);
    const CDtmPrjOpz& block = prj->GetPrjOpz();
    vncActive = block.IsVncActive();
    cnt0Active = block.IsCntActive(0);
    cnt1Active = block.IsCntActive(1);
    vncColor = block.GetVncColor();
    cnt0Color = block.GetCntColor(0);
    cnt1Color = block.GetCntColor(1);

    const COpzTri& tri = prj->GetTris()->GetOptions();
    triFirstFlag = tri.IsFirstDisplayFlag();
    triSecondFlag = tri.IsSecondDisplayFlag();
    triFixedColor = tri.GetFixedColor();
    triLayerColor = tri.GetLayerColor();
    triTextHeight = tri.GetTextHeight();
    triScaleFactor = tri.GetScaleFactor();
    triSymbol = tri.GetSymbol();
    triColorType = tri.GetColorType();
    triColorClasses = tri.GetColorClasses();

    const COpzCvLv& cvlv = prj->GetCvLvs()->GetOpzCvLv();
    for (unsigned i = 0; i < kCvLvCategoryCount; ++i) {
        cvLvCategoryOn[i] = cvlv.IsCategoryOn(i);
        cvLvCategoryColor[i] = static_cast<short>(cvlv.GetCategoryColor(i));
    }
    cvLvColorByLayer = cvlv.IsColorByLayer();
    cvLvColorClasses = cvlv.GetColorClasses();
}

void TDtmOpz::SetToPrj(CDtmPrj* prj) const {
    RequireProject(prj);
    // One event around the three calls, so that their notifications make one undo step.
    kor::CEventGuard event(prj->GetContext());
    prj->SetVisOptions(vncActive, cnt0Active, cnt1Active, vncColor, cnt0Color, cnt1Color);
    prj->GetTris()->SetVisOptions(triFirstFlag, triSecondFlag, triColorType, triFixedColor,
                                  triLayerColor, triColorClasses, triSymbol, triTextHeight,
                                  triScaleFactor);
    const auto colorOf = [this](unsigned i) {
        return static_cast<std::uint16_t>(cvLvCategoryColor[i]);
    };
    prj->GetCvLvs()->SetVisOptions(cvLvCategoryOn[0], cvLvCategoryOn[1], cvLvCategoryOn[2],
                                   cvLvCategoryOn[3], cvLvColorByLayer, colorOf(0), colorOf(1),
                                   colorOf(2), colorOf(3), cvLvColorClasses);
}
