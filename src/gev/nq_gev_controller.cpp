// SPDX-License-Identifier: Apache-2.0
// The controller of this transport.
#include "gev/nq_gev_controller.h"

#include "gev/nq_gev_system.h"
#include "gige/nq_gev_tl_linux.h"

NQGevController::NQGevController() : m_pTL(std::make_unique<NQGevTL>()) {}

NQGevController::~NQGevController() = default;

GigERDMA::NQGenTLSystem* NQGevController::CreateSystem()
{
    return std::make_unique<NQGevSystem>(Answers()).release();
}

int NQGevController::DoInit()
{
    return m_pTL->TLInit() ? GenTL::GC_ERR_SUCCESS : GenTL::GC_ERR_ERROR;
}

int NQGevController::DoClose()
{
    m_pTL->TLClose();
    return GenTL::GC_ERR_SUCCESS;
}

NQGevTL* NQGevController::GetTL() const
{
    return m_pTL.get();
}

int NQGevController::GetTLType() const
{
    return m_pTL->TLGetType();
}
