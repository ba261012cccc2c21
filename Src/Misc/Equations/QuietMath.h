// The policy under which equations call Boost.Math: no exceptions and no errno; what cannot be computed is NaN
// or infinity.
#pragma once

#include <boost/math/policies/policy.hpp>

namespace talora {

using QuietPolicy = boost::math::policies::policy<
    boost::math::policies::domain_error<boost::math::policies::ignore_error>,
    boost::math::policies::pole_error<boost::math::policies::ignore_error>,
    boost::math::policies::overflow_error<boost::math::policies::ignore_error>,
    boost::math::policies::evaluation_error<boost::math::policies::ignore_error>,
    boost::math::policies::promote_double<false>>;

}  // namespace talora
