// Self-check of the layout tables and the catalogue: every layout's fields tile its record, the
// catalogue's sizes are the layouts' sizes, and the exported routine lists match the catalogue.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

#include "TrdCompData.h"
#include "frame/catalogue.h"
#include "records/answer_layouts.h"
#include "records/request_layouts.h"

using trdcomp::records::Field;
using trdcomp::records::Kind;
using trdcomp::records::Layout;

namespace {

// Checks that [0, size) is covered by the fields without gap or overlap; returns "" or a reason.
std::string tiles(const Field* first, const Field* last, std::uint32_t size) {
  std::vector<std::pair<std::uint32_t, std::uint32_t>> spans;
  for (const Field* f = first; f != last; ++f) {
    spans.emplace_back(f->offset, f->offset + f->width);
    if (f->kind == Kind::Group) {
      std::string inner = tiles(f + 1, f + 1 + f->members, f->stride);
      if (!inner.empty()) return "group entry: " + inner;
      f += f->members;
    }
  }
  std::sort(spans.begin(), spans.end());
  std::uint32_t at = 0;
  for (auto [from, to] : spans) {
    if (from != at) return "gap or overlap at offset " + std::to_string(at);
    at = to;
  }
  return at == size ? "" : "fields end at " + std::to_string(at);
}

void checkLayout(const Layout& l) {
  SCOPED_TRACE("layout " + std::to_string(l.number) + " section " + std::to_string(l.section));
  if (l.opaque) {
    EXPECT_EQ(l.fieldCount, 0);
    return;
  }
  EXPECT_EQ(tiles(l.begin(), l.end(), l.size), "");
  bool ascending = true;
  for (const Field* f = l.begin(); f != l.end(); ++f) {
    if (f != l.begin() && f->offset < f[-1].offset && f[-1].kind != Kind::Group) ascending = false;
    if (f->kind == Kind::Text) {
      EXPECT_GE(f->cap, f->width);
    }
    if (f->kind == Kind::Group) f += f->members;
  }
  EXPECT_EQ(ascending, !l.rotated) << "encoding order and the rotated mark disagree";
}

TEST(Layouts, FieldsTileEveryRecord) {
  for (const Layout& l : trdcomp::records::kRequestLayouts) checkLayout(l);
  for (const Layout& l : trdcomp::records::kAnswerLayouts) checkLayout(l);
}

TEST(Layouts, CatalogueSizesAreTheLayoutSizes) {
  using trdcomp::frame::AnswerForm;
  using trdcomp::frame::RequestForm;
  int entries = 0;
  std::set<unsigned> multi2011;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    SCOPED_TRACE("function " + std::to_string(e->number));
    ++entries;
    if (e->requestForm == RequestForm::Routine || e->requestForm == RequestForm::HeaderOnly) {
      EXPECT_EQ(e->request[0]->size, e->requestSize);
      EXPECT_EQ(e->request[1]->size, e->requestSize);
    }
    if (e->answerForm != AnswerForm::Routine) continue;
    const auto& restored = *e->answerRestore[0];
    for (int s = 0; s < 3; ++s) {
      if (e->answerSizes[s] == 0) continue;
      ASSERT_LT(s, restored.sectionCount);
      EXPECT_EQ(restored.sections[s]->size, e->answerSizes[s]) << "section " << s;
    }
    // Answers whose routine differs between the directions still agree on the sections; the
    // 2011 Fast codec carries no optional section.
    for (int c = 0; c < 2; ++c) {
      EXPECT_EQ(e->answerPack[c]->sectionCount, e->answerRestore[c]->sectionCount);
      if (e->answerRestore[1]->multiSection()) multi2011.insert(e->number);
    }
  }
  EXPECT_EQ(entries, 115);
  EXPECT_EQ(multi2011, (std::set<unsigned>{1001, 1002, 1023, 1079, 1083, 1115, 1202}));
}

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
