// SPDX-License-Identifier: Apache-2.0
// The controller of this transport, and the one instance behind the exported functions.
#pragma once

#include "gentl/nq_gentl_controller.h"

#include <memory>

class NQGevTL;

/// Adds the camera access object, through which all modules reach their cameras. Thread-safe, as its base is.
class NQGevController : public GigERDMA::NQGenTLController
{
  public:
    NQGevController();
    ~NQGevController() override;

    /// A new NQGevSystem; the caller owns it.
    GigERDMA::NQGenTLSystem* CreateSystem() override;

    /// GC_ERR_ERROR when the camera layer does not start.
    int DoInit() override;

    /// Always GC_ERR_SUCCESS.
    int DoClose() override;

    /// The camera access object, owned by the controller.
    NQGevTL* GetTL() const;

    /// The camera access object's type, 0.
    int GetTLType() const;

  private:
    std::unique_ptr<NQGevTL> m_pTL;
};

/// Built when the library is loaded, without a thread and without touching the network. Never destroyed: a thread of
/// the consumer, or a heartbeat that nobody ended, may still be here while the process exits.
///
/// Exported under this name; the library itself uses a hidden one, so that each copy in a process has its own.
extern NQGevController g_Controller __asm__("g_ownController");
