// SPDX-License-Identifier: Apache-2.0
// Marks what the library shows to the outside; everything else is hidden.
#pragma once

/// Gives a declaration default visibility. A name so marked must also stand in exports.map to leave the library.
#define NQ_EXPORT __attribute__((visibility("default")))
