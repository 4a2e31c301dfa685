// SPDX-License-Identifier: Apache-2.0
// A port of a GenTL producer in the shape of a device of aravis.
#pragma once

#include "feature_tree.h"

#include <arv.h>

namespace nq::tool
{

/// A device whose memory is that of the port, to be given back by g_object_unref. The port outlives it.
ArvDevice* NewPortDevice(const FeaturePort& port);

} // namespace nq::tool
