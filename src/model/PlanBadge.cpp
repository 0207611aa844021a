#include "model/PlanBadge.h"

#include <QTextBoundaryFinder>

namespace limitra {

std::optional<QString> planBadge(const std::optional<QString>& plan)
{
    if (!plan || plan->isEmpty())
        return std::nullopt;
    // The first character as a reader sees it: a whole grapheme, so letters
    // outside the basic plane and combining marks stay intact.
    QTextBoundaryFinder graphemes(QTextBoundaryFinder::Grapheme, *plan);
    qsizetype first = graphemes.toNextBoundary();
    if (first <= 0)
        first = plan->size();
    return plan->left(first).toUpper() + plan->mid(first);
}

} // namespace limitra
