// Cases and nodes from a database made on the spot, through SQLite's ODBC driver.
#include "VarVal/DbCases.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "Support/TestEnviron.h"
#include "VarVal/Odbc.h"

namespace talora {

namespace {

class DbCasesTest : public testing::Test {
protected:
    void SetUp() override
    {
        path_ = testing::TempDir() + "talora-" + std::to_string(getpid()) + ".db";
        connection_ = "Driver=SQLite3;Database=" + path_ + ";PWD=hunter2";
        manager_ = NewDatabaseManager_cs(connection_.c_str(), nullptr, env_);
        if (manager_ == nullptr) {
            env_.Taken();
            GTEST_SKIP() << "no ODBC driver for SQLite here: " << env_.Message();
        }
        for (const char* statement :
             {"CREATE TABLE visits (IDnum INTEGER, NumCases REAL, Color TEXT, Size INTEGER, Weight REAL)",
              "INSERT INTO visits VALUES (7, 2.5, 'red', 1, 1.25)",
              "INSERT INTO visits VALUES (8, 1, 'blue', 2, NULL)",
              "INSERT INTO visits VALUES (9, 4, NULL, 2, -3e-7)",
              "CREATE TABLE \"odd, one\" (Color TEXT, \"or der\" TEXT)",
              "INSERT INTO \"odd, one\" VALUES ('a,b', 'say \"hi\"')",
              "INSERT INTO \"odd, one\" VALUES (' two' || char(10) || 'lines ', '// no comment')",
              "INSERT INTO \"odd, one\" VALUES ('', '*')"})
            DbQuery(*manager_->connection, statement);
        net_ = NewNet_bn("Visits", env_);
    }
    void TearDown() override { unlink(path_.c_str()); }

    node_bn* Add(const char* name, int num_states, const char* states)
    {
        node_bn* node = NewNode_bn(name, num_states, net_);
        if (states) SetNodeStateNames_bn(node, states);
        return node;
    }
    // The file that a case set holds last.
    std::string FileText(const caseset_cs* cases)
    {
        std::ifstream file(cases->sources.back().name);
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }
    nodelist_bn* List(std::initializer_list<node_bn*> nodes)
    {
        nodelist_bn* list = NewNodeList2_bn(int(nodes.size()), net_);
        int i = 0;
        for (node_bn* node : nodes) SetNthNode_bn(list, i++, node);
        return list;
    }

    TestEnviron env_;
    std::string path_, connection_;
    dbmgr_cs* manager_ = nullptr;
    net_bn* net_ = nullptr;
};

TEST_F(DbCasesTest, RowsBecomeCases)
{
    node_bn* color = Add("Color", 2, "red,blue");
    node_bn* weight = Add("Weight", 0, nullptr);
    caseset_cs* cases = NewCaseset_cs("db", env_);
    AddDBCasesToCaseset_cs(cases, manager_, 2, List({color, weight}), nullptr, "visits", "Size < 3", nullptr);
    ASSERT_EQ(env_.Taken(), 0) << env_.Message();
    EXPECT_EQ(FileText(cases),
              "// ~->[CASE-1]->~\n"
              "\n"
              "// DB columns in order:  \"Color\", \"Weight\"\n"
              "// WARNING: The order of these columns must match the order of the nodes below;\n"
              "// each case takes its values by position.\n"
              "\n"
              "IDnum,NumCases,Color,Weight\n"
              "7,2.5,red,1.25\n"
              "8,1.0,blue,\n"
              "9,4.0,,-3.0e-07\n");
    node_bn* nodes[] = {color, weight};
    CaseReader reader(*cases, nodes);
    CaseBlock block;
    ASSERT_TRUE(reader.Next(block));
    EXPECT_EQ(block.ids, (std::vector<int64_t>{7, 8, 9}));
    EXPECT_EQ(block.weights, (std::vector<double>{5, 2, 8}));
    EXPECT_EQ(block.states[0], (std::vector<int32_t>{0, 1, UNDEF_STATE}));
    EXPECT_EQ(block.values[1], (std::vector<double>{1.25, UndefDbl(), -3e-7}));
    // Lines are counted from behind the comments.
    EXPECT_NE(reader.Place(block, 0).find("on line 2 "), std::string::npos) << reader.Place(block, 0);

    const std::string file = cases->sources[0].name;
    EXPECT_TRUE(std::filesystem::exists(file));
    DeleteCaseset_cs(cases);
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(DbCasesTest, OddValuesAreOnlyData)
{
    node_bn* color = Add("Color", 2, nullptr);
    SetNodeStateTitle_bn(color, 0, "a,b");
    SetNodeStateTitle_bn(color, 1, "two lines");
    node_bn* order = Add("Order", 2, nullptr);
    SetNodeStateTitle_bn(order, 0, "say \"hi\"");
    SetNodeStateTitle_bn(order, 1, "// no comment");
    caseset_cs* cases = NewCaseset_cs("db", env_);
    AddDBCasesToCaseset_cs(cases, manager_, 1, List({color, order}), "Color, \"or der\"", "\"odd, one\"",
                           nullptr, nullptr);
    AddDBCasesToCaseset_cs(cases, manager_, 1, List({color}), "coalesce (Color, 'x')", "\"odd, one\"", "",
                           nullptr);
    ASSERT_EQ(env_.Taken(), 0) << env_.Message();
    node_bn* nodes[] = {color, order};
    CaseReader reader(*cases, nodes);
    CaseBlock block;
    ASSERT_TRUE(reader.Next(block));
    EXPECT_EQ(block.states[0], (std::vector<int32_t>{0, 1, UNDEF_STATE})) << FileText(cases);
    EXPECT_EQ(block.states[1], (std::vector<int32_t>{0, 1, UNDEF_STATE}));
    ASSERT_TRUE(reader.Next(block));
    EXPECT_EQ(block.states[0], (std::vector<int32_t>{0, 1, UNDEF_STATE})) << FileText(cases);
    EXPECT_EQ(env_.Taken(WARNING_SEVERITY), 0) << env_.Message();
}

TEST_F(DbCasesTest, FailuresReportWhyAndKeepSecrets)
{
    node_bn* color = Add("Color", 2, "red,blue");
    node_bn* shape = Add("Shape", 2, nullptr);
    const struct {
        const char* label;
        bool with_shape;
        const char *columns, *tables, *condition;
        int error;
    } kRows[] = {
        {"fewer columns than nodes", true, "Color", "visits", nullptr, 6696},
        {"more columns than nodes", false, "Color, max (Size, 1)", "visits", nullptr, 6696},
        {"a star is many columns", false, "*", "visits", nullptr, 6696},
        {"no column of that name", true, nullptr, "visits", nullptr, 6697},
        {"no such table", false, nullptr, "nowhere", nullptr, 6691},
        {"broken condition", false, nullptr, "visits", "Color = = 'PWD=hunter2'", 6691},
        {"no table", false, nullptr, " ", nullptr, 6695},
    };
    caseset_cs* cases = NewCaseset_cs("db", env_);
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        AddDBCasesToCaseset_cs(cases, manager_, 1, row.with_shape ? List({color, shape}) : List({color}),
                               row.columns, row.tables, row.condition, nullptr);
        EXPECT_EQ(env_.Taken(), row.error) << env_.Message();
        EXPECT_EQ(env_.Message().find("hunter2"), std::string::npos) << env_.Message();
        EXPECT_TRUE(cases->sources.empty());
    }
    EXPECT_EQ(NewDatabaseManager_cs("Driver=NoSuchDriver;PWD=hunter2;Database=x", nullptr, env_), nullptr);
    EXPECT_EQ(env_.Taken(), 6690);
    EXPECT_EQ(env_.Message().find("hunter2"), std::string::npos) << env_.Message();
}

TEST_F(DbCasesTest, ColumnsBecomeNodes)
{
    Add("Size", 3, nullptr);
    nodelist_bn* nodes = AddNodesForColumns_bn(manager_, net_, nullptr, "visits", nullptr, nullptr);
    ASSERT_EQ(env_.Taken(), 0) << env_.Message();
    ASSERT_EQ(LengthNodeList_bn(nodes), 3);
    node_bn* color = NthNode_bn(nodes, 0);
    EXPECT_STREQ(GetNodeName_bn(color), "Color");
    EXPECT_EQ(GetNodeNumberStates_bn(color), 2);
    EXPECT_STREQ(GetNodeStateName_bn(color, 0), "blue");
    EXPECT_EQ(GetNodeNumberStates_bn(NthNode_bn(nodes, 1)), 3);  // as it was
    EXPECT_EQ(GetNodeType_bn(NthNode_bn(nodes, 2)), CONTINUOUS_TYPE);

    nodelist_bn* odd =
        AddNodesForColumns_bn(manager_, net_, "\"or der\", length (Color)", "\"odd, one\"", nullptr, nullptr);
    ASSERT_EQ(env_.Taken(), 0) << env_.Message();
    EXPECT_STREQ(GetNodeName_bn(NthNode_bn(odd, 0)), "or_der");
    EXPECT_EQ(GetNodeNumberStates_bn(NthNode_bn(odd, 0)), 3);
    EXPECT_EQ(GetNodeNumberStates_bn(NthNode_bn(odd, 1)), 3);  // lengths 3, 11 and 0 as levels
    EXPECT_NE(GetNodeLevels_bn(NthNode_bn(odd, 1)), nullptr);
}

TEST(OdbcTest, SecretsAreTakenOutOfTexts)
{
    const struct {
        const char *text, *connection, *safe;
    } kRows[] = {
        {"login of bob failed", "UID=bob;PWD=x1", "login of bob failed"},
        {"bad x1 in PWD=x1", "UID=bob;PWD=x1", "bad *** in PWD=***"},
        {"at DSN=a;Password={p;q}", "DSN=a;Password={p;q}", "at ***"},
        {"p;q", "DSN=a; Password = {p;q};X=1", "p;q"},
        {"pwd=other;rest", "DSN=a", "pwd=***;rest"},
    };
    for (const auto& row : kRows) EXPECT_EQ(WithoutSecrets(row.text, row.connection), row.safe);
}

}  // namespace

}  // namespace talora
