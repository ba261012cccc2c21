// Interface functions: cases and nodes from databases.
#include "Basic/Secret.h"
#include "Talora/APICheck.h"
#include "VarVal/DbCases.h"
#include "VarVal/DbManager.h"

using namespace talora;

namespace {

DbSelection SelectionArgument(const char* columns, const char* tables, const char* condition)
{
    return {TextArgument(columns), TextArgument(tables), TextArgument(condition)};
}

}  // namespace

dbmgr_cs* NewDatabaseManager_cs(const char* connection, const char* options, environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<dbmgr_cs*>(nullptr), [&](environ_vx& owner) {
        CheckNoOptions(options);
        std::string text = TextArgument(connection);  // with a password, perhaps
        const WipeAtEnd wipe(text);
        return NewDbManager(owner, std::make_unique<DbConnection>(text));
    });
}

void DeleteDatabaseManager_cs(dbmgr_cs* manager)
{
    if (manager == nullptr) return;
    CallApi(__func__, manager, [&] { DeleteDbManager(manager); });
}

void AddDBCasesToCaseset_cs(caseset_cs* cases, dbmgr_cs* manager, double degree, const nodelist_bn* nodes,
                            const char* column_names, const char* tables, const char* condition,
                            const char* options)
{
    CallApi(__func__, With(nodes, EntriesOf(nodes), cases, manager), [&] {
        CheckHandle(cases);
        CheckHandle(manager);
        CheckNoOptions(options);
        if (!(degree >= 0) || degree >= InfinityDbl()) Fail<6702>(degree);
        AddDbCases(*cases, *manager, degree, nodes->nodes,
                   SelectionArgument(column_names, tables, condition));
    });
}

nodelist_bn* AddNodesForColumns_bn(dbmgr_cs* manager, net_bn* net, const char* column_names,
                                   const char* tables, const char* condition, const char* options)
{
    return CallApi(__func__, With(net, manager), static_cast<nodelist_bn*>(nullptr), [&] {
        CheckHandle(manager);
        CheckNoOptions(options);
        const std::vector<Node*> nodes =
            AddDbNodes(*net, *manager, SelectionArgument(column_names, tables, condition));
        NodeList* list = NewNodeList(*net->env, nodes.size());
        std::copy(nodes.begin(), nodes.end(), list->nodes.begin());
        return list;
    });
}
