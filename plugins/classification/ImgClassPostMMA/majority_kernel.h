// The majority/minority vote of a class image row, over a sliding window histogram: a free function over typed
// buffers, so it is tested against the direct count of every window.
#pragma once

#include <vector>

namespace mma
{

struct VoteRule
{
    int rowRadius = 0;
    int columnRadius = 0;
    int centreWeight = 1;                // votes of the centre pixel
    bool minority = false;               // least frequent present class instead of the most frequent
    std::vector<int> votingClasses;      // ascending class values that take part (others are left as they are)
    std::vector<char> votes;             // votes[v] != 0 when class v takes part; sized to the largest + 1
};

// Votes row y of `values` (rows first .. first + rowCount - 1 of an image `width` wide, the window clipped to
// those rows and to the row's ends) into out[0 .. width - 1]. histogram: at least votes.size() zeros on entry,
// zeros again on return.
void voteRow(const VoteRule& rule, const int* values, int first, int rowCount, int width, int y, int* out,
             std::vector<int>& histogram);

} // namespace mma
