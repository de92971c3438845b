// PointerList: adding at both ends, insertion, iteration, removal through iterators, misuse
// reports, ownership, and a randomized comparison with std::list.
#include "CoreLib/PointerList.h"

#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <list>
#include <random>
#include <type_traits>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;

struct Widget {
    int m_Id;
};
using WidgetList = PointerList<Widget>;

static_assert(std::is_same_v<PointerList<Widget>, PointerList<Widget*>>, "both spellings hold Widget*");

class PointerListTest : public CoreLibFixture {
protected:
    Widget m_Widgets[8] = {{0}, {1}, {2}, {3}, {4}, {5}, {6}, {7}};
};

// The ids from head to tail, walked with GetNext.
std::vector<int> Ids(WidgetList& list) {
    std::vector<int> ids;
    WidgetList::Iterator position = list.GetHeadPosition();
    while (position != nullptr) {
        ids.push_back((*list.GetNext(position))->m_Id);
    }
    return ids;
}

// The ids from tail to head, walked with GetPrevious.
std::vector<int> IdsBackwards(WidgetList& list) {
    std::vector<int> ids;
    WidgetList::Iterator position = list.GetTailPosition();
    while (position != nullptr) {
        ids.push_back((*list.GetPrevious(position))->m_Id);
    }
    return ids;
}

TEST_F(PointerListTest, AddsAtTheHeadAndAtTheTail) {
    WidgetList list;
    EXPECT_TRUE(list.IsEmpty());
    list.AddTail(&m_Widgets[1]);
    list.AddHead(&m_Widgets[0]);
    list.AddTail(&m_Widgets[2]);
    EXPECT_EQ(list.GetCount(), 3u);
    EXPECT_THAT(Ids(list), ElementsAre(0, 1, 2));
    EXPECT_THAT(IdsBackwards(list), ElementsAre(2, 1, 0));
    EXPECT_EQ(list.Get(list.GetHeadPosition()), &m_Widgets[0]);
    EXPECT_EQ(list.Get(list.GetTailPosition()), &m_Widgets[2]);
    EXPECT_TRUE(list.Validate());
}

TEST_F(PointerListTest, GetNextHandsOutTheAddressOfTheValueAndMovesOn) {
    WidgetList list;
    WidgetList::Iterator first = list.AddTail(&m_Widgets[4]);
    list.AddTail(&m_Widgets[5]);
    WidgetList::Iterator position = first;
    Widget** value = list.GetNext(position);
    EXPECT_EQ(value, &first->m_Value);
    EXPECT_EQ(position, list.GetTailPosition());
    *value = &m_Widgets[6];  // the address writes into the node
    EXPECT_THAT(Ids(list), ElementsAre(6, 5));
}

TEST_F(PointerListTest, InsertBeforeTheHeadMakesANewHead) {
    WidgetList list;
    WidgetList::Iterator one = list.AddTail(&m_Widgets[1]);
    WidgetList::Iterator three = list.AddTail(&m_Widgets[3]);
    WidgetList::Iterator zero = list.InsertBefore(one, &m_Widgets[0]);
    EXPECT_EQ(list.GetHeadPosition(), zero);
    list.InsertBefore(three, &m_Widgets[2]);
    EXPECT_THAT(Ids(list), ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(IdsBackwards(list), ElementsAre(3, 2, 1, 0));
    EXPECT_EQ(list.GetCount(), 4u);
    EXPECT_TRUE(list.Validate());
}

TEST_F(PointerListTest, RemoveHeadAndRemoveTailReturnTheValues) {
    WidgetList list;
    for (int id = 0; id < 3; ++id) {
        list.AddTail(&m_Widgets[id]);
    }
    EXPECT_EQ(list.RemoveHead(), &m_Widgets[0]);
    EXPECT_EQ(list.RemoveTail(), &m_Widgets[2]);
    EXPECT_EQ(list.GetHeadPosition(), list.GetTailPosition());
    EXPECT_TRUE(list.Validate());
    EXPECT_EQ(list.RemoveTail(), &m_Widgets[1]);
    EXPECT_EQ(list.GetHeadPosition(), nullptr);
    EXPECT_EQ(list.GetTailPosition(), nullptr);
    EXPECT_EQ(list.GetCount(), 0u);
    EXPECT_TRUE(list.Validate());
}

TEST_F(PointerListTest, RemovePosMovesTheIteratorToTheNextNode) {
    WidgetList list;
    for (int id = 0; id < 4; ++id) {
        list.AddTail(&m_Widgets[id]);
    }
    WidgetList::Iterator position = list.GetHeadPosition()->m_Next;  // a middle node
    EXPECT_EQ(list.RemovePos(position), &m_Widgets[1]);
    EXPECT_EQ(list.Get(position), &m_Widgets[2]);
    position = list.GetHeadPosition();
    EXPECT_EQ(list.RemovePos(position), &m_Widgets[0]);
    EXPECT_EQ(position, list.GetHeadPosition());
    position = list.GetTailPosition();
    EXPECT_EQ(list.RemovePos(position), &m_Widgets[3]);
    EXPECT_EQ(position, nullptr);
    EXPECT_THAT(Ids(list), ElementsAre(2));
    position = list.GetHeadPosition();
    EXPECT_EQ(list.RemovePos(position), &m_Widgets[2]);
    EXPECT_EQ(position, nullptr);
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_TRUE(list.Validate());
}

TEST_F(PointerListTest, RemovingFromAnEmptyListIsReportedAndGivesNull) {
    WidgetList list;
    ScopedCapture capture;
    EXPECT_EQ(list.RemoveHead(), nullptr);
    EXPECT_EQ(list.RemoveTail(), nullptr);
    EXPECT_THAT(capture.Messages(), ElementsAre("Head cannot be NULL", "Tail cannot be NULL"));
    std::vector<CapturedReport> reports = capture.Reports();
    EXPECT_EQ(reports[0].channel, LogAssertProgrammer);
    EXPECT_EQ(reports[1].channel, LogAssertProgrammer);
    EXPECT_EQ(reports[0].function, "zn::PointerListBase<A, R, T>::RemoveHead");
    EXPECT_EQ(list.GetCount(), 0u);
    EXPECT_TRUE(list.Validate());
}

TEST_F(PointerListTest, ANullIteratorIsReportedAndChangesNothing) {
    WidgetList list;
    list.AddTail(&m_Widgets[0]);
    ScopedCapture capture;
    WidgetList::Iterator none = nullptr;
    EXPECT_EQ(list.GetNext(none), nullptr);
    EXPECT_EQ(list.InsertBefore(nullptr, &m_Widgets[1]), nullptr);
    EXPECT_EQ(list.RemovePos(none), nullptr);
    EXPECT_EQ(list.Get(nullptr), nullptr);
    EXPECT_THAT(capture.Messages(), ElementsAre("Iterator cannot be NULL", "Iterator cannot be NULL",
                                                "Iterator cannot be NULL", "Iterator cannot be NULL"));
    for (const CapturedReport& report : capture.Reports()) {
        EXPECT_EQ(report.channel, LogAssertProgrammer);
    }
    EXPECT_EQ(capture.Reports()[1].function, "zn::PointerListBase<A, R, T>::InsertBefore");
    EXPECT_THAT(Ids(list), ElementsAre(0));
    EXPECT_TRUE(list.Validate());
}

TEST_F(PointerListTest, TheListOwnsItsNodesButNotThePointees) {
    Widget* widget = new Widget{42};
    {
        WidgetList list;
        list.AddTail(widget);
        list.AddTail(widget);
        EXPECT_EQ(list.Find(widget), list.GetHeadPosition());
        EXPECT_EQ(list.Find(&m_Widgets[0]), nullptr);
    }
    EXPECT_EQ(widget->m_Id, 42);
    delete widget;
}

TEST_F(PointerListTest, RemoveAllEmptiesTheList) {
    WidgetList list;
    for (int id = 0; id < 5; ++id) {
        list.AddHead(&m_Widgets[id]);
    }
    list.RemoveAll();
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(list.GetHeadPosition(), nullptr);
    EXPECT_TRUE(list.Validate());
    list.AddTail(&m_Widgets[7]);
    EXPECT_THAT(Ids(list), ElementsAre(7));
}

TEST_F(PointerListTest, RandomOperationsMatchAListModel) {
    std::mt19937 random(991);
    WidgetList list;
    std::list<Widget*> model;
    for (int step = 0; step < 4000; ++step) {
        Widget* widget = &m_Widgets[random() % 8];
        size_t count = model.size();
        switch (random() % 6) {
            case 0:
                list.AddHead(widget);
                model.push_front(widget);
                break;
            case 1:
                list.AddTail(widget);
                model.push_back(widget);
                break;
            case 2:
            case 3: {
                if (count == 0) {
                    break;
                }
                size_t at = random() % count;
                WidgetList::Iterator position = list.GetHeadPosition();
                for (size_t i = 0; i < at; ++i) {
                    list.GetNext(position);
                }
                auto modelPosition = std::next(model.begin(), static_cast<long>(at));
                if (random() % 2 == 0) {
                    list.InsertBefore(position, widget);
                    model.insert(modelPosition, widget);
                } else {
                    EXPECT_EQ(list.RemovePos(position), *modelPosition);
                    modelPosition = model.erase(modelPosition);
                    EXPECT_EQ(position == nullptr, modelPosition == model.end());
                    if (position != nullptr) {
                        EXPECT_EQ(list.Get(position), *modelPosition);
                    }
                }
                break;
            }
            case 4:
                if (count > 0) {
                    EXPECT_EQ(list.RemoveHead(), model.front());
                    model.pop_front();
                }
                break;
            case 5:
                if (count > 0) {
                    EXPECT_EQ(list.RemoveTail(), model.back());
                    model.pop_back();
                }
                break;
        }
        ASSERT_TRUE(list.Validate()) << "step " << step;
        ASSERT_EQ(list.GetCount(), model.size());
        std::vector<int> expected;
        for (Widget* w : model) {
            expected.push_back(w->m_Id);
        }
        ASSERT_EQ(Ids(list), expected) << "step " << step;
    }
}

}  // namespace
}  // namespace zn::test
