#include "base/containers/flat_map.h"

#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using IntMap = base::flat_map<int, std::string>;
using Pairs = std::vector<std::pair<int, std::string>>;

Pairs Contents(const IntMap& m) { return Pairs(m.begin(), m.end()); }

TEST(FlatMapTest, BuildingSortsAndKeepsFirstOfEachKey) {
    const IntMap from_list{{3, "c"}, {1, "a"}, {3, "x"}, {2, "b"}, {1, "y"}};
    EXPECT_EQ(Contents(from_list), (Pairs{{1, "a"}, {2, "b"}, {3, "c"}}));

    const Pairs input{{5, "e"}, {4, "d"}, {5, "z"}};
    EXPECT_EQ(Contents(IntMap(input.begin(), input.end())), (Pairs{{4, "d"}, {5, "e"}}));
    EXPECT_EQ(Contents(IntMap(Pairs(input))), (Pairs{{4, "d"}, {5, "e"}}));

    // Large enough that an unstable sort would reorder equal keys.
    Pairs many;
    std::map<int, std::string> first_seen;
    for (int i = 0; i < 300; ++i) {
        many.emplace_back((i * 7) % 50, std::to_string(i));
        first_seen.insert(many.back());
    }
    EXPECT_EQ(Contents(IntMap(many.begin(), many.end())),
              Pairs(first_seen.begin(), first_seen.end()));

    // Elements already present win over inserted ones.
    IntMap m{{1, "a"}, {3, "c"}};
    m.insert({{1, "z"}, {0, "o"}, {2, "b"}, {0, "p"}});
    EXPECT_EQ(Contents(m), (Pairs{{0, "o"}, {1, "a"}, {2, "b"}, {3, "c"}}));

    const base::flat_map<int, int, std::greater<int>> reversed{{1, 1}, {3, 3}, {2, 2}};
    EXPECT_EQ(reversed.begin()->first, 3);
    EXPECT_EQ(reversed.rbegin()->first, 1);
}

TEST(FlatMapTest, InsertionVariantsOnlyReplaceWhenAsked) {
    IntMap m;
    auto [it, inserted] = m.insert({2, "b"});
    EXPECT_TRUE(inserted);
    EXPECT_EQ(it->second, "b");
    std::tie(it, inserted) = m.insert({2, "x"});
    EXPECT_FALSE(inserted);
    EXPECT_EQ(it->second, "b");

    EXPECT_FALSE(m.emplace(2, "y").second);
    EXPECT_TRUE(m.emplace(1, "a").second);

    std::tie(it, inserted) = m.insert_or_assign(2, "B");
    EXPECT_FALSE(inserted);
    EXPECT_EQ(m.at(2), "B");
    EXPECT_TRUE(m.insert_or_assign(3, "C").second);

    m[4] = "D";
    EXPECT_EQ(m[5], "");
    EXPECT_EQ(Contents(m), (Pairs{{1, "a"}, {2, "B"}, {3, "C"}, {4, "D"}, {5, ""}}));

    // A failed try_emplace leaves its arguments alone.
    base::flat_map<int, std::unique_ptr<int>> owners;
    EXPECT_TRUE(owners.try_emplace(1, std::make_unique<int>(1)).second);
    auto second = std::make_unique<int>(2);
    EXPECT_FALSE(owners.try_emplace(1, std::move(second)).second);
    EXPECT_NE(second, nullptr);
    EXPECT_EQ(*owners.at(1), 1);
}

TEST(FlatMapTest, LookupsBisect) {
    IntMap m{{10, "a"}, {20, "b"}, {30, "c"}};
    EXPECT_EQ(m.lower_bound(5)->first, 10);
    EXPECT_EQ(m.lower_bound(10)->first, 10);
    EXPECT_EQ(m.upper_bound(10)->first, 20);
    EXPECT_EQ(m.lower_bound(15)->first, 20);
    EXPECT_EQ(m.upper_bound(30), m.end());
    EXPECT_EQ(m.lower_bound(35), m.end());

    auto range = m.equal_range(20);
    EXPECT_EQ(std::distance(range.first, range.second), 1);
    range = m.equal_range(25);
    EXPECT_EQ(range.first, range.second);

    EXPECT_EQ(m.find(20)->second, "b");
    EXPECT_EQ(m.find(21), m.end());
    EXPECT_EQ(m.count(30), 1u);
    EXPECT_EQ(m.count(31), 0u);
    EXPECT_TRUE(m.contains(10));
    EXPECT_FALSE(m.contains(0));

    const IntMap& cm = m;
    EXPECT_EQ(cm.find(30)->second, "c");
    EXPECT_EQ(cm.at(10), "a");
}

TEST(FlatMapTest, TransparentComparatorLooksUpWithoutBuildingKeys) {
    base::flat_map<std::string, int> m{{"b", 2}, {"a", 1}};
    EXPECT_EQ(m.find("b")->second, 2);
    EXPECT_EQ(m.find(std::string_view("a"))->second, 1);
    EXPECT_TRUE(m.contains("a"));
    EXPECT_EQ(m.count(std::string_view("c")), 0u);
    EXPECT_EQ(m.lower_bound("aa")->first, "b");
    EXPECT_EQ(m.at("a"), 1);
    EXPECT_EQ(m.erase("a"), 1u);
    EXPECT_EQ(m.size(), 1u);
}

// Random operations against std::map, which has the same observable behaviour.
TEST(FlatMapTest, BehavesLikeStdMap) {
    std::mt19937 rng(99);
    std::uniform_int_distribution<int> key(0, 40);
    std::uniform_int_distribution<int> op(0, 5);
    base::flat_map<int, int> flat;
    std::map<int, int> reference;
    using IntPairs = std::vector<std::pair<int, int>>;
    for (int i = 0; i < 4000; ++i) {
        const int k = key(rng);
        switch (op(rng)) {
            case 0:
                EXPECT_EQ(flat.insert({k, i}).second, reference.insert({k, i}).second);
                break;
            case 1:
                EXPECT_EQ(flat.erase(k), reference.erase(k));
                if (!flat.empty()) {
                    auto next = flat.erase(flat.begin());
                    reference.erase(reference.begin());
                    EXPECT_EQ(next, flat.begin());
                }
                break;
            case 2:
                flat.insert_or_assign(k, i);
                reference.insert_or_assign(k, i);
                break;
            case 3:
                flat[k] += i;
                reference[k] += i;
                break;
            case 4:
                EXPECT_EQ(flat.try_emplace(k, i).second, reference.try_emplace(k, i).second);
                break;
            default: {
                const std::vector<std::pair<int, int>> batch{{k, i}, {key(rng), i}, {k, -i}};
                flat.insert(batch.begin(), batch.end());
                reference.insert(batch.begin(), batch.end());
                break;
            }
        }
        ASSERT_EQ(IntPairs(flat.begin(), flat.end()), IntPairs(reference.begin(), reference.end()))
            << "after operation " << i;
    }

    base::flat_map<int, int> copy = flat;
    EXPECT_EQ(copy, flat);
    copy[1000] = 1;
    EXPECT_NE(copy, flat);
}

TEST(FlatMapDeathTest, AtRequiresThePresenceOfTheKey) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    IntMap m{{1, "a"}};
    EXPECT_DEATH(m.at(2), "");
}

}  // namespace
