// Arranging the result list for display: the results that the quick filter
// lets through, in the order of the sort descriptors. The sort is stable,
// so results that compare equal keep the query's order.
//
// Each result's sort values are read once per arrangement (not once per
// comparison), and texts in the locale's order are compared through
// collation keys made once each; this keeps sorting tens of thousands of
// results within a frame or two.
#pragma once

#include "presentation/sort_descriptor.h"
#include "query/result_filter.h"

#include <memory>
#include <optional>
#include <vector>

namespace trovara::query {

class ResultItem;

std::vector<ResultItem*> arrangeResults(const std::vector<std::shared_ptr<ResultItem>>& content,
                                        const std::optional<ResultFilter>& filter,
                                        const std::vector<presentation::SortDescriptor>& sortDescriptors);

// The same order for two results by themselves: negative when a goes first,
// zero when they tie (the arrangement then keeps them as they came). For
// placing a few results among many already arranged, without arranging the
// many again.
int compareArranged(const ResultItem& a, const ResultItem& b,
                    const std::vector<presentation::SortDescriptor>& sortDescriptors);

}  // namespace trovara::query
