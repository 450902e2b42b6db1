#pragma once

// What the tests of the network's cloud link, colours and event listener share: a way into the
// network's private state, a cloud that can pretend to have lost points, a recorder of the
// messages shown to the user, and a project whose network can be bound to such a cloud.

#include <dtm/network/CCld.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Message.h>
#include <dtm/support/RefCounter.h>

#include "network/CTrisEventListener.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

/// Reaches the members of CTris that have no public accessor (a friend of CTris).
struct CTrisTestAccess {
    static void UpdateTriColors(CTris& tris) { tris.UpdateTriColors(); }
    static CTrisEventListener& Listener(CTris& tris) { return *tris.m_listener; }
    static std::vector<std::uint8_t>& Selection(CTris& tris) { return tris.m_selection; }
};

namespace dtm_test {

/// A memory cloud that reports @ref missing points fewer than it holds, as a cloud file that
/// was replaced by an older, smaller one.
class ShrinkableCld : public CMemCld {
public:
    int missing = 0;
    int GetNumPnts() const override { return CMemCld::GetNumPnts() - missing; }

protected:
    ~ShrinkableCld() override = default;
};

/// Captures every message shown while it lives, then puts the default handler back.
class MessageRecorder {
public:
    struct Shown {
        std::string text;
        std::string caption;
        unsigned style;
    };

    MessageRecorder() {
        kor::SetMessageHandler([this](const char* text, const char* caption, unsigned style) {
            shown.push_back({text, caption, style});
        });
    }
    ~MessageRecorder() { kor::SetMessageHandler(nullptr); }
    MessageRecorder(const MessageRecorder&) = delete;
    MessageRecorder& operator=(const MessageRecorder&) = delete;

    std::vector<Shown> shown;
};

/// A project named "Rilievo" and a cloud held by the test, which the network can be bound to.
class CloudNetworkTest : public testing::Test {
protected:
    CloudNetworkTest()
        : prj(kor::CRefPtr<CDtmPrj>::Adopt(new CDtmPrj(nullptr, "Rilievo", true, false))),
          cloud(kor::CRefPtr<ShrinkableCld>::Adopt(new ShrinkableCld)),
          tris(*prj->GetTris()) {}

    /// Binds the cloud and adds every one of its points as a vertex, in index order.
    void BindCloudAndAddEveryPoint() {
        tris.SetCld(cloud.Get());
        for (int i = 0; i < cloud->GetNumPnts(); ++i) tris.AddTriVrt(i);
    }

    // Declared first, so that the default handler comes back only after everything else is gone.
    MessageRecorder messages;
    kor::CRefPtr<CDtmPrj> prj;
    kor::CRefPtr<ShrinkableCld> cloud;
    CTris& tris;
};

}  // namespace dtm_test
