// Self-check of the layout tables and the catalogue. The layouts are checked where they are
// made, at compile time: every layout's fields tile its record, texts keep at least their width,
// and the rotated mark says whether the encoding order leaves ascending offsets. At run time: the
// exported routine lists match the catalogue.
#include <gtest/gtest.h>

#include <set>

#include "TrdCompData.h"
#include "frame/catalogue.h"
#include "records/answer_layouts.h"
#include "records/request_layouts.h"

using trdcomp::records::Field;
using trdcomp::records::Kind;
using trdcomp::records::Layout;

namespace {

constexpr const Field* next(const Field* f) {
  return f + (f->kind == Kind::Group ? 1 + f->members : 1);
}

// [first, last) covers [0, size) without gap or overlap: every field lies inside, no two
// overlap, and the widths add up to the size. A group's members tile its entry.
constexpr bool tiles(const Field* first, const Field* last, std::uint32_t size) {
  std::uint64_t total = 0;
  for (const Field* f = first; f != last; f = next(f)) {
    if (std::uint64_t(f->offset) + f->width > size) return false;
    for (const Field* g = first; g != f; g = next(g))
      if (f->offset < g->offset + g->width && g->offset < f->offset + f->width) return false;
    if (f->kind == Kind::Group && !tiles(f + 1, f + 1 + f->members, f->stride)) return false;
    total += f->width;
  }
  return total == size;
}

constexpr bool sound(const Layout& l) {
  if (l.opaque) return l.fieldCount == 0;
  bool ascending = true;
  for (const Field* f = l.begin(); f != l.end(); ++f) {
    if (f != l.begin() && f->offset < f[-1].offset && f[-1].kind != Kind::Group) ascending = false;
    if (f->kind == Kind::Text && f->cap < f->width) return false;
    if (f->kind == Kind::Group) f += f->members;
  }
  return ascending == !l.rotated && tiles(l.begin(), l.end(), l.size);
}

// The index of the first unsound layout (the table's size when there is none), so that a
// failure names it.
template <class Layouts>
constexpr std::size_t firstUnsound(const Layouts& layouts) {
  std::size_t i = 0;
  while (i < layouts.size() && sound(layouts[i])) ++i;
  return i;
}
static_assert(firstUnsound(trdcomp::records::kRequestLayouts) ==
              trdcomp::records::kRequestLayouts.size());
static_assert(firstUnsound(trdcomp::records::kAnswerLayouts) ==
              trdcomp::records::kAnswerLayouts.size());

TEST(Layouts, ExportedRoutineListsMatchTheCatalogue) {
  using trdcomp::frame::AnswerForm;
  using trdcomp::frame::RequestForm;
  std::set<unsigned> requests, answers;
#define TRDCOMP_COLLECT_REQUEST(n) requests.insert(n);
#define TRDCOMP_COLLECT_ANSWER(n) answers.insert(n);
  TRDCOMP_REQUEST_ROUTINES(TRDCOMP_COLLECT_REQUEST)
  TRDCOMP_ANSWER_ROUTINES(TRDCOMP_COLLECT_ANSWER)
  std::set<unsigned> withRequestRoutine, withAnswerRoutine;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    if (e->requestForm == RequestForm::Routine || e->requestForm == RequestForm::HeaderOnly)
      withRequestRoutine.insert(e->number);
    if (e->answerForm == AnswerForm::Routine) withAnswerRoutine.insert(e->number);
  }
  EXPECT_EQ(requests, withRequestRoutine);
  EXPECT_EQ(answers, withAnswerRoutine);
}

}  // namespace
