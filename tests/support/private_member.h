// SPDX-License-Identifier: Apache-2.0
// Access to a private member, for the few states that no public operation brings about.
#pragma once

namespace nq::test
{

/// An explicit instantiation may name private members, and the friend it defines hands the member out. In this
/// namespace:
///
///     struct Secret
///     {
///         using Type = int Thing::*;
///         friend Type Get(Secret);
///     };
///     template struct Reveal<Secret, &Thing::m_secret>;
///     thing.*Get(Secret{}) = 7;
template <class Tag, typename Tag::Type member>
struct Reveal
{
    friend typename Tag::Type Get(Tag) { return member; }
};

} // namespace nq::test
