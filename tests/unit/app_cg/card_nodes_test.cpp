// The card node table: placement, first match, and the texts of its operations.
//
// Order is checked through the table's own walk and not through its links: how the list is built is the
// table's affair, the order in which it prints is not.
#include "app_cg/card_nodes.h"

#include <gmock/gmock.h>

#include <cstdio>

#include "admission.h"
#include "app_cg_dbg/logging.h"

namespace admission::card_nodes
{

using testing::ElementsAre;
using testing::IsEmpty;

CardNode at_position(int32_t devid, int32_t slotid, int32_t sslotid, int32_t nodeid = 0)
{
    CardNode node{};
    node.devid = devid;
    node.slotid = slotid;
    node.sslotid = sslotid;
    node.node = nodeid;
    return node;
}

CardNode *insert(const CardNode &templ)
{
    return app_cg_node_init(templ, &g_app_cg_global.card_nodes);
}

// Hands a list's nodes over to the empty table, which is the only list that search, walk and deletion know.
void move_to_table(app_cg_list_t *list)
{
    app_cg_list_t &table = g_app_cg_global.card_nodes;
    table = *list;
    table.next->prev = &table;
    table.prev->next = &table;
    app_cg_node_list_init(list);
}

// A node with something in every field.
CardNode full_node()
{
    CardNode node = at_position(1, 3, 2, 0x2a);
    node.config_dev_type = 17;
    node.is_online = 1;
    node.node_type = 3;
    node.tipc_node = 4097;
    node.dm_install = 1;
    node.reported = 1;
    std::snprintf(node.reason, sizeof node.reason, "%s", "too old: 50% of %s");
    node.stat = 2;
    node.timer = nullptr;
    return node;
}

const char *const FULL_NODE_LINE =
    "node[0x0000002a] config_dev_type[17] devid[1] slotid[3] sslotid[2] is_online[1] tipc_node[4097] "
    "node_type[3], dm_install[1] reported[1] reason[too old: 50% of %s] stat[2] app_cg_wait_obj_num[3] "
    "app_cg_wait_obj_bmp[7] timer[(nil)]\n";

const char *const HEADER = "===================CURRENT_NODE_INFO===================\n";

class CardNodes : public AdmissionTest
{
};

class CardNodesLog : public EveryVerbosity
{
};

INSTANTIATE_TEST_SUITE_P(Verbosity, CardNodesLog, every_verbosity(), verbosity_name);

// ---- search ----

TEST_F(CardNodes, AnEmptyTableHoldsNoCard)
{
    EXPECT_EQ(app_cg_node_pos_search(0, 0, 0), nullptr);
    EXPECT_EQ(app_cg_node_pos_search(1, 3, 2), nullptr);
    EXPECT_THAT(recording::take(), IsEmpty());
}

TEST_F(CardNodes, OnlyTheThreeIdsAreMatched)
{
    CardNode *plain = insert(at_position(1, 3, 2));
    CardNode other = full_node();
    other.slotid = 4;
    CardNode *full = insert(other);
    EXPECT_EQ(app_cg_node_pos_search(1, 3, 2), plain);
    EXPECT_EQ(app_cg_node_pos_search(1, 4, 2), full);
}

TEST_F(CardNodes, EachIdTellsPositionsApart)
{
    insert(at_position(1, 3, 2));
    EXPECT_EQ(app_cg_node_pos_search(1, 3, 1), nullptr);
    EXPECT_EQ(app_cg_node_pos_search(1, 2, 2), nullptr);
    EXPECT_EQ(app_cg_node_pos_search(2, 3, 2), nullptr);
    CardNode *sub = insert(at_position(1, 3, 0));
    EXPECT_EQ(app_cg_node_pos_search(1, 3, 0), sub);
    EXPECT_EQ(node_count(), 2U);
}

TEST_F(CardNodes, NegativeIdsAreIdsLikeOthers)
{
    CardNode *node = insert(at_position(-1, -2147483647 - 1, 2147483647));
    EXPECT_EQ(app_cg_node_pos_search(-1, -2147483647 - 1, 2147483647), node);
    EXPECT_EQ(app_cg_node_pos_search(-1, 0, 2147483647), nullptr);
}

TEST_F(CardNodes, TheFirstInTheTableIsFound)
{
    insert(at_position(1, 3, 2, 9));
    CardNode *first = insert(at_position(1, 3, 2, 5));
    EXPECT_EQ(app_cg_node_pos_search(1, 3, 2), first);
}

TEST_P(CardNodesLog, AHitIsTracedAMissIsNot)
{
    CardNode templ = full_node();
    templ.node = -2;
    insert(templ);
    recording::take();
    app_cg_node_pos_search(1, 3, 2);
    app_cg_node_pos_search(1, 3, 3);
    EXPECT_EQ(recording::take(),
              heard({{"log 60 app_cg.cpp app_cg_node_pos_search: node:0xfffffffe, config_dev_type:17\r\n"}}));
}

// ---- creation ----

TEST_F(CardNodes, ANodeTakesTheWholeTemplate)
{
    int32_t handle = 0;
    CardNode templ = full_node();
    templ.timer = reinterpret_cast<vx_thread_t *>(&handle);
    CardNode *node = insert(templ);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->timer, templ.timer);
    templ.wait_obj = g_app_cg_global.wait_obj;
    EXPECT_EQ(dump_text(*node), dump_text(templ));
}

TEST_F(CardNodes, TheRegistryIsCopiedWhateverTheTemplateHeld)
{
    CardNode templ = at_position(1, 3, 2);
    templ.wait_obj.app_cg_wait_obj_num = 9;
    templ.wait_obj.app_cg_wait_obj_bmp = 0xffff;
    std::snprintf(templ.wait_obj.app_cg_wait_obj_name[5], APP_CG_WAIT_OBJ_NAME_LEN, "stale");
    CardNode *node = insert(templ);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_num, 3);
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_bmp, 7U);
    EXPECT_STREQ(node->wait_obj.app_cg_wait_obj_name[0], "m1");
    EXPECT_STREQ(node->wait_obj.app_cg_wait_obj_name[2], "m3");
    EXPECT_STREQ(node->wait_obj.app_cg_wait_obj_name[5], "");
}

TEST_F(CardNodes, ALaterRescanLeavesNodesAlone)
{
    CardNode *node = insert(at_position(1, 3, 2));
    register_modules({"m9"});
    CardNode *later = insert(at_position(1, 3, 3));
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_bmp, 7U);
    EXPECT_STREQ(node->wait_obj.app_cg_wait_obj_name[0], "m1");
    EXPECT_EQ(later->wait_obj.app_cg_wait_obj_bmp, 1U);
    EXPECT_STREQ(later->wait_obj.app_cg_wait_obj_name[0], "m9");
}

TEST_F(CardNodes, NewCardsGoInFrontOfTheFirstPositiveNodeId)
{
    insert(at_position(1, 9, 0, 9));
    insert(at_position(1, 5, 0, 5));
    insert(at_position(2, 1, 0));
    insert(at_position(2, 2, 0));
    insert(at_position(2, 3, 0));
    EXPECT_THAT(table(), ElementsAre("2/1/0", "2/2/0", "2/3/0", "1/5/0", "1/9/0"));
}

TEST_F(CardNodes, WithoutPositiveNodeIdsANewCardIsTheLast)
{
    insert(at_position(1, 1, 0, -7));
    insert(at_position(1, 2, 0));
    insert(at_position(1, 3, 0));
    EXPECT_THAT(table(), ElementsAre("1/1/0", "1/2/0", "1/3/0"));
}

TEST_F(CardNodes, NodeIdsAreComparedWithTheirSign)
{
    insert(at_position(1, 1, 0, 0));
    insert(at_position(1, 2, 0, -1));
    insert(at_position(1, 3, 0, 2147483647));
    EXPECT_THAT(table(), ElementsAre("1/2/0", "1/1/0", "1/3/0"));
}

TEST_F(CardNodes, EqualNodeIdsKeepTheirOrderOfArrival)
{
    insert(at_position(1, 1, 0, 5));
    insert(at_position(1, 2, 0, 9));
    insert(at_position(1, 3, 0, 5));
    EXPECT_THAT(table(), ElementsAre("1/1/0", "1/3/0", "1/2/0"));
}

TEST_F(CardNodes, TheTableIsNeverSortedAgain)
{
    // As the install handling does it: inserted with node id 0, which is filled in afterwards.
    insert(at_position(1, 1, 0))->node = 9;
    insert(at_position(1, 2, 0))->node = 1;
    insert(at_position(1, 3, 0))->node = 5;
    EXPECT_THAT(table(), ElementsAre("1/3/0", "1/2/0", "1/1/0"));
}

TEST_F(CardNodes, ANodeGoesIntoTheListThatItWasMadeFor)
{
    app_cg_list_t list;
    app_cg_node_list_init(&list);
    CardNode *last = app_cg_node_init(at_position(1, 1, 0, 9), &list);
    CardNode *first = app_cg_node_init(at_position(1, 2, 0, 5), &list);
    ASSERT_THAT(table(), IsEmpty());
    ASSERT_NE(list.next, &list);
    move_to_table(&list); // where they are freed when the test ends
    EXPECT_THAT(table(), ElementsAre("1/2/0", "1/1/0"));
    EXPECT_EQ(app_cg_node_pos_search(1, 1, 0), last);
    EXPECT_EQ(app_cg_node_pos_search(1, 2, 0), first);
}

TEST_P(CardNodesLog, CreationIsTraced)
{
    CardNode templ = full_node();
    templ.wait_obj.app_cg_wait_obj_num = 3;
    templ.wait_obj.app_cg_wait_obj_bmp = 7;
    ASSERT_NE(insert(templ), nullptr);
    EXPECT_EQ(recording::take(), heard({{"log 60 app_cg.cpp app_cg_node_init: enter",
                                         std::string("log 40 app_cg.cpp app_cg_dump_node: ") + FULL_NODE_LINE,
                                         "log 60 app_cg.cpp app_cg_node_init: leave"}}));
}

TEST_P(CardNodesLog, WithoutMemoryNothingIsInserted)
{
    insert(at_position(1, 1, 0));
    recording::take();
    fake_fs::fail_next_malloc();
    EXPECT_EQ(insert(at_position(1, 2, 0)), nullptr);
    EXPECT_EQ(recording::take(), heard({{notice("app_cg_node_init", "enter")},
                                        dumped(at_position(1, 2, 0)),
                                        {error("app_cg_node_init", "new_node malloc failed")}}));
    EXPECT_THAT(table(), ElementsAre("1/1/0"));
}

// ---- deletion ----

TEST_F(CardNodes, DeletingFromAnEmptyTableSucceeds)
{
    EXPECT_EQ(app_cg_node_del(1, 3, 2), 0);
    EXPECT_EQ(node_count(), 0U);
}

TEST_F(CardNodes, OnlyTheCardOfThePositionIsDeleted)
{
    insert(at_position(1, 1, 0));
    insert(at_position(1, 2, 0));
    insert(at_position(1, 3, 0));
    EXPECT_EQ(app_cg_node_del(1, 2, 0), 0);
    EXPECT_THAT(table(), ElementsAre("1/1/0", "1/3/0"));
    EXPECT_EQ(app_cg_node_del(1, 2, 0), 0);
    EXPECT_THAT(table(), ElementsAre("1/1/0", "1/3/0"));
}

TEST_F(CardNodes, FirstAndLastCanBeDeletedAndTheTableGrowsAgain)
{
    insert(at_position(1, 1, 0));
    insert(at_position(1, 2, 0));
    insert(at_position(1, 3, 0));
    app_cg_node_del(1, 3, 0);
    app_cg_node_del(1, 1, 0);
    app_cg_node_del(1, 2, 0);
    EXPECT_THAT(table(), IsEmpty());
    insert(at_position(1, 4, 0));
    EXPECT_THAT(table(), ElementsAre("1/4/0"));
}

TEST_F(CardNodes, OfTwoCardsInOnePositionTheFirstIsDeleted)
{
    CardNode *second = insert(at_position(1, 3, 2, 9));
    insert(at_position(1, 3, 2, 5));
    app_cg_node_del(1, 3, 2);
    EXPECT_EQ(app_cg_node_pos_search(1, 3, 2), second);
    EXPECT_EQ(node_count(), 1U);
}

TEST_F(CardNodes, DeletionTouchesNeitherStoreNorTimer)
{
    int32_t handle = 0;
    CardNode templ = at_position(1, 3, 2);
    templ.timer = reinterpret_cast<vx_thread_t *>(&handle);
    insert(templ);
    app_cg_node_del(1, 3, 2);
    EXPECT_THAT(recording::take(), IsEmpty());
}

TEST_P(CardNodesLog, DeletionIsTraced)
{
    insert(full_node());
    recording::take();
    app_cg_node_del(1, 3, 2);
    const std::string enter = "log 60 app_cg.cpp app_cg_node_del: devid[1] slotid[3] sslotid[2]";
    const std::string leave = "log 60 app_cg.cpp app_cg_node_del: leave";
    const std::string hit = "log 60 app_cg.cpp app_cg_node_pos_search: node:0x2a, config_dev_type:17\r\n";
    EXPECT_EQ(recording::take(), heard({{enter, hit, leave}}));
    app_cg_node_del(1, 3, 2);
    EXPECT_EQ(recording::take(), heard({{enter, leave}}));
}

// ---- dumps ----

TEST_P(CardNodesLog, ANodeIsDumpedToTheLogOnlyWithTraces)
{
    CardNode node = full_node();
    node.wait_obj = g_app_cg_global.wait_obj;
    app_cg_dump_node(node);
    EXPECT_EQ(recording::take(),
              heard({{std::string("log 40 app_cg.cpp app_cg_dump_node: ") + FULL_NODE_LINE}}));
}

TEST_P(CardNodesLog, ANodeIsPrintedAtAnyVerbosity)
{
    CardNode node = full_node();
    node.wait_obj = g_app_cg_global.wait_obj;
    int32_t count = 0;
    EXPECT_EQ(printed([&] { count = app_cg_print_node(node); }), FULL_NODE_LINE);
    EXPECT_EQ(count, static_cast<int32_t>(std::string(FULL_NODE_LINE).size()));
    EXPECT_THAT(recording::take(), IsEmpty());
}

TEST_F(CardNodes, AnEmptyTablePrintsItsHeaderAlone)
{
    EXPECT_EQ(printed([] { EXPECT_EQ(app_cg_dump_all_node(), 0); }), HEADER);
    EXPECT_THAT(recording::take(), IsEmpty());
}

TEST_P(CardNodesLog, TheTableIsPrintedInItsOrder)
{
    CardNode *last = insert(full_node());
    CardNode *first = insert(at_position(2, 1, 0));
    recording::take();
    EXPECT_EQ(printed([] { app_cg_dump_all_node(); }), HEADER + dump_text(*first) + dump_text(*last));
    EXPECT_EQ(recording::take(), heard({dumped(*first), dumped(*last)}));
}

// ---- walk ----

int32_t note_walk(CardNode *node, void *arg)
{
    recording::note("visit " + std::to_string(node->slotid));
    return node->slotid == *static_cast<int32_t *>(arg) ? -1 : 0;
}

int32_t delete_visited(CardNode *node, void * /*arg*/)
{
    return app_cg_node_del(node->devid, node->slotid, node->sslotid);
}

TEST_P(CardNodesLog, TheWalkDumpsEachNodeBeforeItsCall)
{
    int32_t stop_at = 99;
    CardNode *one = insert(at_position(1, 1, 0));
    CardNode *two = insert(at_position(1, 2, 0));
    recording::take();
    app_cg_node_foreach(note_walk, &stop_at);
    EXPECT_EQ(recording::take(), heard({dumped(*one), {"visit 1"}, dumped(*two), {"visit 2"}}));
}

TEST_F(CardNodes, AResultOtherThanZeroEndsTheWalk)
{
    int32_t stop_at = 2;
    insert(at_position(1, 1, 0));
    insert(at_position(1, 2, 0));
    insert(at_position(1, 3, 0));
    recording::take();
    app_cg_node_foreach(note_walk, &stop_at);
    EXPECT_THAT(recording::take(), ElementsAre("visit 1", "visit 2"));
}

TEST_F(CardNodes, TheWalkSurvivesTheDeletionOfWhatItVisits)
{
    insert(at_position(1, 1, 0));
    insert(at_position(1, 2, 0));
    insert(at_position(1, 3, 0));
    app_cg_node_foreach(delete_visited, nullptr);
    EXPECT_EQ(node_count(), 0U);
}

TEST_F(CardNodes, AWalkWithoutACallbackDoesNothing)
{
    app_cg_verbosity = 4;
    insert(at_position(1, 1, 0));
    recording::take();
    app_cg_node_foreach(nullptr, nullptr);
    EXPECT_THAT(recording::take(), IsEmpty());
}

} // namespace admission::card_nodes
