// Reading a net from text: head, statements of the net, nodes in the order in which they can be read.
#include "BN/Files/BnParse.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>

#include "BN/Files/NetContainer.h"
#include "BN/Inference/BnCompile.h"
#include "BN/Model/BnEdit.h"
#include "Basic/Error.h"
#include "Basic/FileType.h"
#include "Basic/Names.h"
#include "Basic/Text.h"

namespace talora {

namespace {

constexpr size_t kPollBytes = 1 << 20;
constexpr size_t kFreeOfFewBytes = 1 << 20;  // bytes or entries that repeat others, and per byte of the file
constexpr size_t kMadePerByte = 16;

// The text without a byte-order mark; wide text comes back in narrow.
std::string_view PlainText(std::string_view bytes, std::string& narrow)
{
    if (bytes.starts_with("\xEF\xBB\xBF")) return bytes.substr(3);
    if (!bytes.starts_with("\xFF\xFE")) return bytes;
    std::string wide(bytes);
    wide.append(2, '\0');
    narrow = NarrowText(wide.c_str());
    return narrow;
}

[[noreturn]] void FailInheriting(const DefineNode& define)
{
    FailOutOfMemory("to inherit the statements of >-node %s", define.name.c_str());
}

// Reads on only if the user wants to, where the format is not the one that this version writes.
void CheckFormatVersion(int version, const FilePlace& place)
{
    if (version == 1) return;
    const char* const age = version == 0 ? "unknown" : version < 0 ? "old" : "new";
    WarnAt<2912>(place, age, version);
    if (AskQuestion("This net was stored using another version of the file format. Read it?",
                    "Continue,Cancel", "Continue") == 1)
        FailWith<3605>(ABORTED_CND);
}

}  // namespace

int NetFileVersion(std::string_view text)
{
    if (FileTypeByContents(text) != "DNET") return kNoVersion;
    text.remove_prefix(kFileMark.size() + 4);
    if (!text.starts_with('-')) return 0;
    int version = 0;
    std::from_chars(text.data() + 1, text.data() + std::min<size_t>(text.size(), 12), version);
    return version;
}

Net* ReadNet(const Stream& stream, const ReadNetOptions& options)
{
    const StreamBytes bytes(stream, FileTypeByName(stream.name) == "TALA");
    return ReadNet(bytes.View(), stream, options);
}

Net* ReadNet(std::string_view bytes, const Stream& stream, const ReadNetOptions& options)
{
    std::string narrow;
    std::string_view text = PlainText(bytes, narrow);
    UnpackedNet unpacked;
    if (IsBinaryNet(text, stream.name)) {
        unpacked = UnpackNet(bytes, stream);
        CheckFormatVersion(unpacked.version, {.file = stream.name.c_str()});
        text = PlainText(unpacked.text.View(), narrow);
    }
    Net* const net = NetReader(text, stream, options).Read();
    net->password = std::move(unpacked.password);  // saved again, it is encrypted again
    if (net->auto_compile) CompileAfterReading(*net);
    return net;
}

void CheckNetReads(const Net& net, std::string_view text, const Stream& stream)
{
    std::string reason;
    try {
        DeleteNet(NetReader(text, stream, {.is_check = true}).Read());
        return;
    } catch (const Unwind& unwind) {
        if (HasCondition(*unwind.record, ABORTED_CND)) throw;
        reason = MessageOf(*unwind.record);
        ClearReport(unwind.record);
    } catch (const OutOfMemory&) {
        return;  // the work is to be saved first of all
    } catch (const std::bad_alloc&) {
        return;
    }
    Fail<7253>(net.name.c_str(), reason.c_str());
}

NetReader::NetReader(std::string_view contents, const Stream& stream, const ReadNetOptions& options)
    : text(contents, stream.name.c_str()),
      stream_(stream),
      options_(options),
      size_(contents.size()),
      next_poll_(kPollBytes),
      progress_(options.is_check ? "Checking file" : "Reading net")
{
    if (options_.single_pass) options_.inherit_in_first_pass = true;
}

NetReader::~NetReader()
{
    if (net_ != nullptr) DeleteNet(net_);
}

void NetReader::Poll()
{
    if (text.At() < next_poll_) return;
    next_poll_ = text.At() + kPollBytes;
    if (IsHalted() || !progress_.Step(static_cast<double>(text.At()) / static_cast<double>(size_)))
        FailWith<3605>(ABORTED_CND);
}

// ---- The file ----

void NetReader::CheckHeader()
{
    const std::string_view start = text.Text(0, std::min<size_t>(size_, 256));
    const int version = NetFileVersion(start);
    if (version == kNoVersion)
        FailAt<4109>(text.PlaceOf(0), stream_.name.c_str(), "DNET", FileTypeByName(stream_.name).c_str(),
                     FileTypeByContents(start).c_str());
    CheckFormatVersion(version, text.PlaceOf(0));
}

Net* NetReader::Read()
{
    CheckHeader();
    for (;;) {
        if (text.AtEnd()) FailAt<2920>(text.PlaceOf(size_), "`bnet`");
        const std::string_view word = text.ReadWord();
        if (word.empty() || !IsLegalName(word.substr(0, 1)))
            FailAt<2913>(text.PlaceOf(text.At()),
                         word.empty() ? text.PeekText().c_str() : std::string(word).c_str(), "DNET");
        if (word == "bnet") break;
        WarnAt<3341>(text.Place(), std::string(word).c_str());
        text.SkipObject("bnet");
        if (!text.TryRead(';') && !text.TryRead('}') && !text.AtEnd()) FailAt<2915>(text.PlaceOf(text.At()));
    }
    ReadBnet();
    if (!text.TryRead(';')) FailAt<2914>(text.PlaceOf(text.At()), "bnet", net_->name.c_str());
    net_->changed = false;
    Net* const result = net_;
    net_ = nullptr;
    return result;
}

void NetReader::ReadBnet()
{
    const std::string name = ReadName("net");
    net_ = NewNet(*stream_.env, name, !options_.is_check);
    const std::string title = "net '" + name + "'";
    if (!text.TryRead('{')) FailAt<2916>(text.PlaceOf(text.At()), title.c_str());
    const size_t start = text.At();
    while (!text.TryRead('}')) {
        const size_t word_at = text.At();
        if (text.AtEnd()) FailAt<2927>(text.PlaceOf(start), title.c_str());
        const std::string_view word = text.ReadWord();
        if (word.empty()) FailAt<2919>(text.PlaceOf(text.At()), text.PeekText().c_str());
        ReadStatement(word, word_at);
        if (text.At() <= word_at) FailAt<3526>(text.PlaceOf(word_at), static_cast<int>(text.LineOf(word_at)));
        Poll();
    }
    const size_t end = text.At();
    SecondPass();
    text.GoTo(end);
    CheckNoCycle();
}

void NetReader::ReadStatement(std::string_view word, size_t word_at)
{
    static const auto is_object = [](std::string_view w) {
        return w == "node" || w == "param" || w == "define" || w == "user" || w == "visual" || w == "NodeSet";
    };
    if (is_object(word)) return ReadObject(word, word_at);
    if (word == "elimorder") {
        text.SkipValue();
        text.TryRead(';');
        return;
    }
    const int field = FindNetField(word);
    if (field < 0) return SkipUnknown(word, word_at, "net", net_->name);
    const auto index = static_cast<size_t>(field);
    const char* const keyword = kNetFields[index].keyword;
    if (!text.TryRead('=')) FailAt<2922>(text.PlaceOf(word_at), keyword);
    if (net_fields_read_[index]) {
        WarnAt<2923>(text.PlaceOf(word_at), keyword);
        text.SkipValue();
    } else if (kNetFields[index].read == nullptr) {
        text.context = ", while reading field `" + std::string(keyword) + "` of net '" + net_->name + "'";
        WarnAt<2943>(text.PlaceOf(word_at), keyword, "net");
        text.context.clear();
        text.SkipValue();
    } else if (field == NET_ELIMORDER && !InSecondPass()) {
        net_fields_read_[index] = true;
        net_put_off_.push_back({field, text.At()});
        text.SkipValue();
    } else {
        net_fields_read_[index] = true;
        text.context = ", while reading field `" + std::string(keyword) + "` of net '" + net_->name + "'";
        kNetFields[index].read(*this);
        text.context.clear();
    }
    NeedSemicolonAfter(keyword);
}

void NetReader::ReadObject(std::string_view word, size_t word_at)
{
    if (word == "node") return ReadNode("node", NATURE_NODE);
    if (word == "param") return ReadNode("node", DISCONNECTED_NODE);
    if (word == "user") return ReadSection(net_->text, false);
    if (word == "visual") return ReadSection(net_->text, true);
    if (word == "NodeSet") {
        if (InSecondPass()) return ReadNodeSet();
        net_put_off_.push_back({NET_NODESET, text.At()});
        text.SkipValue();
        text.TryRead(';');
        return;
    }
    const std::string_view what = text.ReadWord();
    if (what == "node" || what == "param") return ReadDefine();
    WarnAt<3291>(text.PlaceOf(word_at), "object", std::string(what).c_str());
    text.SkipValue();
    text.TryRead(';');
}

void NetReader::NeedSemicolonAfter(const char* keyword)
{
    if (!text.TryRead(';')) FailAt<2926>(text.PlaceOf(text.At()), keyword);
}

void NetReader::NeedSemicolonAtEnd(const char* what, const std::string& name)
{
    if (!text.TryRead(';')) FailAt<2925>(text.PlaceOf(text.At()), what, name.c_str());
}

void NetReader::SkipUnknown(std::string_view word, size_t word_at, const char* what, const std::string& name)
{
    // A file of millions of them takes no longer than one that is read.
    if (IsMuted(3291)) {
        text.SkipValue();
        text.TryRead(';');
        return;
    }
    text.context = std::string(", while reading ") + what + " '" + name + "'";
    WarnAt<3291>(text.PlaceOf(word_at), text.Peek() == '=' ? "field" : "object", std::string(word).c_str());
    text.context.clear();
    text.SkipValue();
    text.TryRead(';');
}

// ---- Sections that are kept unread ----

namespace {

// Reads a body that consists of statements NAME = "..."; only.  False if it holds anything else, a comment
// included, or a name twice: such a section is not ours to interpret.
bool TryReadUserFields(Tokenizer& text, std::string_view body, size_t body_at, std::vector<UserField>& fields)
{
    const auto skip_blanks = [&](size_t i) {
        const size_t next = body.find_first_not_of(" \t\r\n", i);
        return next == std::string_view::npos ? body.size() : next;
    };
    size_t i = skip_blanks(0);
    while (i < body.size()) {
        const size_t name_end = std::min(body.find_first_of(" \t\r\n=/\"", i), body.size());
        const std::string_view name = body.substr(i, name_end - i);
        i = skip_blanks(name_end);
        if (!IsLegalName(name) || i >= body.size() || body[i] != '=') return false;
        i = skip_blanks(i + 1);
        if (i >= body.size() || body[i] != '"') return false;
        text.GoTo(body_at + i);
        fields.push_back({std::string(name), text.ReadQuoted()});
        i = skip_blanks(text.At() - body_at);
        if (i >= body.size() || body[i] != ';') return false;
        i = skip_blanks(i + 1);
    }
    std::vector<std::string_view> names;
    for (const UserField& field : fields) names.push_back(field.name);
    std::sort(names.begin(), names.end());
    return !names.empty() && std::adjacent_find(names.begin(), names.end()) == names.end();
}

// A second section of a kind is kept behind the first: the body then holds what stands between them.
void AddSection(std::string& name, std::string& body, std::string new_name, std::string_view new_body,
                const char* keyword)
{
    if (name.empty()) {
        name = std::move(new_name);
        body = new_body;
        return;
    }
    body += "};\n\n\t";
    body += keyword;
    body += " " + new_name + " {";
    body += new_body;
}

}  // namespace

void NetReader::ReadSection(Description& description, bool visual)
{
    const char* const keyword = visual ? "visual" : "user";
    std::string name = ReadName(keyword);
    const std::string section_name = name;
    if (!text.TryRead('{')) FailAt<2916>(text.PlaceOf(text.At()), keyword);
    const size_t body_at = text.At();
    const std::string_view body = text.ReadBody(keyword);
    const size_t end = text.At();
    std::vector<UserField> fields;
    if (visual) {
        if (options_.keep_visual)
            AddSection(description.visual_name, description.visual_section, std::move(name), body, keyword);
    } else if (description.user_fields.empty() && TryReadUserFields(text, body, body_at, fields)) {
        description.user_fields = std::move(fields);
        if (description.user_section.empty()) description.user_name = std::move(name);
    } else {
        if (description.user_section.empty()) description.user_name.clear();
        AddSection(description.user_name, description.user_section, std::move(name), body, keyword);
    }
    text.GoTo(end);
    NeedSemicolonAtEnd(keyword, section_name);
}

// ---- Nodes ----

void NetReader::ReadNode(const char* what, int kind)
{
    const size_t name_at = text.At();
    const std::string name = ReadName(what);
    if (net_->node_index.contains(name)) FailAt<2928>(text.PlaceOf(name_at), what, name.c_str());
    Node* const node = InsertNode(*net_, name, "read net");
    node->kind = kind;
    node->states.type = VarType::UNKNOWN;
    blocks_read_.resize(net_->nodes.nodes.size());
    NodeReader reader{.reader = *this, .node = *node};
    ReadDefineList(what, node->name.c_str(), reader.defines);
    ReadNodeBlock(reader);
    if (kind == DISCONNECTED_NODE) node->kind = kind;
    if (node->kind == DISCONNECTED_NODE) TakeOriginalParent(*node);
    if (node->kind == DISCONNECTED_NODE && !node->links.empty())
        FailAt<2939>(text.PlaceOf(reader.parents_at));
    if (!reader.put_off.empty()) put_off_.push_back(std::move(reader));
}

// The optional list of define nodes behind a node's name.
void NetReader::ReadDefineList(const char* what, const char* name, std::vector<const DefineNode*>& defines)
{
    if (!text.TryRead('(')) return;
    while (!text.TryRead(')')) {
        const std::string define_name = ReadName("node");
        const DefineNode* const define = FindDefine(define_name);
        if (define == nullptr) FailAt<2929>(text.Place(), what, name, "define node");
        defines.push_back(define);  // named twice it gives nothing more
        if (!text.TryRead(',') && text.Peek() != ')') FailAt<3297>(text.PlaceOf(text.At()));
    }
    // A list of thousands of names, each of them for the same few nodes, gives no more than these.
    std::unordered_set<const DefineNode*> seen;
    std::erase_if(defines, [&](const DefineNode* define) { return !seen.insert(define).second; });
}

const DefineNode* NetReader::FindDefine(std::string_view name) const
{
    const auto found = defines_.find(std::string(name));
    return found == defines_.end() ? nullptr : &found->second;
}

void NetReader::ReadNodeBlock(NodeReader& reader)
{
    const std::string title = "node '" + reader.node.name + "'";
    if (!text.TryRead('{')) FailAt<2916>(text.PlaceOf(text.At()), title.c_str());
    const size_t start = text.At();
    if (options_.inherit_in_first_pass) Inherit(reader);
    while (!text.TryRead('}')) {
        const size_t word_at = text.At();
        if (text.AtEnd()) FailAt<2933>(text.PlaceOf(start), title.c_str());
        const std::string_view word = text.ReadWord();
        if (word.empty()) FailAt<2919>(text.PlaceOf(text.At()), text.PeekText().c_str());
        ReadNodeStatement(reader, word, word_at);
        if (text.At() <= word_at) FailAt<3526>(text.PlaceOf(word_at), static_cast<int>(text.LineOf(word_at)));
        Poll();
    }
    const size_t end = text.At();
    if (!options_.inherit_in_first_pass) Inherit(reader);
    InheritUserFields(reader);
    EndNode(reader);
    text.GoTo(end);
    NeedSemicolonAtEnd("node", reader.node.name);
}

void NetReader::ReadNodeStatement(NodeReader& reader, std::string_view word, size_t word_at)
{
    if (word == "visual" && text.Peek() != '=') {
        reader.visual_seen = true;
        return ReadSection(reader.node.text, true);
    }
    if (word == "user") return ReadSection(reader.node.text, false);
    const int field = FindNodeField(word);
    if (field < 0) return SkipUnknown(word, word_at, "node", reader.node.name);
    const NodeFieldDef& def = kNodeFields[field];
    if (!text.TryRead('=')) FailAt<2922>(text.PlaceOf(word_at), def.keyword);
    if (def.read == nullptr) {
        text.context =
            ", while reading field `" + std::string(def.keyword) + "` of node '" + reader.node.name + "'";
        WarnAt<3021>(text.PlaceOf(word_at), def.keyword, "node");
        text.context.clear();
        text.SkipValue();
    } else if (IsRepeated(reader, field)) {
        text.SkipValue();
    } else {
        if (field == NODE_PARENTS && reader.visual_seen) WarnAt<2932>(text.PlaceOf(word_at), "visual");
        ReadNodeField(reader, field);
    }
    NeedSemicolonAfter(def.keyword);
}

// Whether a statement must be skipped because its field is settled; says so.
bool NetReader::IsRepeated(NodeReader& reader, int field)
{
    const auto index = static_cast<size_t>(field);
    const char* const keyword = kNodeFields[field].keyword;
    const bool has_inherited_table = reader.inherited[NODE_PROBS] || reader.inherited[NODE_FUNCTABLE];
    if (reader.inherited[index]) {
        WarnAt<2930>(text.Place(), keyword);
        return true;
    }
    if (reader.state[index] != FieldState::NOT_GIVEN) {
        WarnAt<2924>(text.Place(), keyword, "node", reader.Name());
        return true;
    }
    if (has_inherited_table && (field == NODE_PARENTS || field == NODE_STATES || field == NODE_NUMSTATES)) {
        WarnAt<2931>(text.Place(), keyword);
        return true;
    }
    return false;
}

bool NetReader::IsReady(const NodeReader& reader, int field) const
{
    if (InSecondPass()) return true;
    // Vectors over time need the number of their entries, which may be stated behind the nodes.
    const bool needs_dimensions = field == NODE_DELAYS || field == NODE_PERSIST || field == NODE_POSITION;
    if (needs_dimensions && !net_fields_read_[NET_NUMDIMENSIONS]) return false;
    switch (kNodeFields[field].needs) {
        case Needs::NOTHING:
        case Needs::NAMES:
            return true;
        case Needs::TYPE:
            return reader.block_ended || reader.IsRead(NODE_DISCRETE);
        case Needs::PARENTS:
            return reader.IsRead(NODE_PARENTS);
        case Needs::STATES:
            return reader.block_ended;
        case Needs::TABLE:
            break;
    }
    const bool parents_known = reader.IsRead(NODE_PARENTS) ||
                               (reader.block_ended && reader.state[NODE_PARENTS] == FieldState::NOT_GIVEN);
    if (!parents_known || !(HasStates(reader.node) || reader.block_ended)) return false;
    return std::all_of(reader.node.links.begin(), reader.node.links.end(),
                       [this](const Link& link) { return IsBlockRead(*link.parent); });
}

// Reads the value that begins here, or notes its place.  Behind it stands the semicolon.
void NetReader::ReadNodeField(NodeReader& reader, int field)
{
    FieldState& state = reader.state[static_cast<size_t>(field)];
    const Statement statement{field, text.At()};
    state = FieldState::GIVEN;
    bool done = false;
    if (IsReady(reader, field)) {
        if (field == NODE_PARENTS) reader.parents_at = statement.value_at;
        text.context.assign(", while reading field `").append(kNodeFields[field].keyword);
        text.context.append("` of node '").append(reader.node.name).append("'");
        done = kNodeFields[field].read(reader);
        text.context.clear();
    }
    if (done) {
        state = FieldState::READ;
        return;
    }
    reader.put_off.push_back(statement);
    text.GoTo(statement.value_at);
    text.SkipValue();
}

void NetReader::Inherit(NodeReader& reader)
{
    const size_t here = text.At();
    for (const DefineNode* define : reader.defines) {
        for (const Statement& statement : define->statements) {
            const auto index = static_cast<size_t>(statement.field);
            if (reader.state[index] != FieldState::NOT_GIVEN) continue;
            text.GoTo(statement.value_at);
            ReadNodeField(reader, statement.field);
            reader.inherited[index] = options_.inherit_in_first_pass;
            if (!CountMade(text.At() - statement.value_at)) FailInheriting(*define);
        }
    }
    text.GoTo(here);
}

// A few bytes must not call for gigabytes, as by inheriting a large statement many times.
bool NetReader::CountMade(size_t count)
{
    num_made_ += count;
    return num_made_ <= kFreeOfFewBytes + kMadePerByte * size_;
}

// User fields of the define nodes that the node has none of its own of that name; another kind of section if
// it has none at all.
void NetReader::InheritUserFields(NodeReader& reader)
{
    if (reader.defines.empty()) return;
    const size_t here = text.At();
    Description& own = reader.node.text;
    for (const DefineNode* define : reader.defines) {
        for (const size_t section_at : define->user_sections) {
            text.GoTo(section_at);
            Description inherited;
            ReadSection(inherited, false);
            if (!CountMade(text.At() - section_at)) FailInheriting(*define);
            std::unordered_set<std::string_view> names;
            for (const UserField& field : own.user_fields) names.insert(field.name);
            std::erase_if(inherited.user_fields, [&](const UserField& f) { return names.contains(f.name); });
            names.clear();
            own.user_fields.insert(own.user_fields.end(), inherited.user_fields.begin(),
                                   inherited.user_fields.end());
            if (!own.user_section.empty() || inherited.user_section.empty()) continue;
            own.user_section = std::move(inherited.user_section);
            own.user_name = std::move(inherited.user_name);
        }
    }
    text.GoTo(here);
}

// The user field that our writer adds to a disconnected node is none of the user's.
void NetReader::TakeOriginalParent(Node& node)
{
    std::vector<UserField>& fields = node.text.user_fields;
    const auto found = std::find_if(fields.begin(), fields.end(), [](const UserField& field) {
        return field.name == kOriginalParentField && (IsLegalName(field.value) || field.value == "*");
    });
    if (found == fields.end()) return;
    node.disconnected_from = std::move(found->value);
    fields.erase(found);
    if (fields.empty() && node.text.user_section.empty()) node.text.user_name.clear();
}

// Settles what depends on which statements there were, then takes up those put off within the block.
void NetReader::EndNode(NodeReader& reader)
{
    Node& node = reader.node;
    reader.block_ended = true;
    if (!reader.IsRead(NODE_DISCRETE) && reader.states_are_known) node.states.type = VarType::DISCRETE;
    TakeUp(reader);
    if (node.states.type == VarType::CONTINUOUS && HasStates(node) && node.states.levels.empty())
        FailAt<2942>(text.PlaceOf(text.At()), "levels", "node", reader.Name());
    // A node that says nothing of a variable is a note in the drawing.
    const auto given = [&](int field) {
        return reader.state[static_cast<size_t>(field)] != FieldState::NOT_GIVEN;
    };
    const bool is_variable = node.states.type != VarType::UNKNOWN || HasStates(node) || given(NODE_LEVELS) ||
                             given(NODE_EQUATION) || given(NODE_PARENTS) || given(NODE_FUNCTABLE) ||
                             given(NODE_VALUE);
    if (!reader.IsRead(NODE_KIND) && node.kind == NATURE_NODE && !is_variable) node.kind = UNKNOWN_KIND;
    blocks_read_[static_cast<size_t>(node.index)] = true;
}

void NetReader::TakeUp(NodeReader& reader)
{
    if (reader.put_off.empty()) return;
    std::vector<Statement> statements;
    statements.swap(reader.put_off);
    std::stable_sort(statements.begin(), statements.end(), [](const Statement& a, const Statement& b) {
        return kNodeFields[a.field].needs < kNodeFields[b.field].needs;
    });
    for (const Statement& statement : statements) {
        text.GoTo(statement.value_at);
        ReadNodeField(reader, statement.field);
        NeedSemicolonAfter(kNodeFields[statement.field].keyword);
        Poll();
    }
}

void NetReader::ReadDefine()
{
    const size_t name_at = text.At();
    DefineNode define{ReadName("node"), {}};
    if (defines_.contains(define.name))
        FailAt<2928>(text.PlaceOf(name_at), "define node", define.name.c_str());
    std::vector<const DefineNode*> bases;
    ReadDefineList("define node", define.name.c_str(), bases);
    const std::string title = "node '" + define.name + "'";
    if (!text.TryRead('{')) FailAt<2916>(text.PlaceOf(text.At()), title.c_str());
    const size_t start = text.At();
    const auto has = [&](int field) {
        return std::any_of(define.statements.begin(), define.statements.end(),
                           [&](const Statement& s) { return s.field == field; });
    };
    while (!text.TryRead('}')) {
        const size_t word_at = text.At();
        if (text.AtEnd()) FailAt<2933>(text.PlaceOf(start), title.c_str());
        const std::string_view word = text.ReadWord();
        if (word.empty()) FailAt<2919>(text.PlaceOf(text.At()), text.PeekText().c_str());
        const int field = FindNodeField(word);
        if (field < 0 || text.Peek() != '=') {
            if (word != "visual" && word != "user") {
                SkipUnknown(word, word_at, "node", define.name);
                continue;
            }
            if (word == "user") define.user_sections.push_back(text.At());
        } else if (has(field)) {
            WarnAt<2924>(text.PlaceOf(word_at), kNodeFields[field].keyword, "node", define.name.c_str());
        } else if (text.TryRead('=') && kNodeFields[field].read != nullptr && field != NODE_NAME) {
            define.statements.push_back({field, text.At()});
        }
        text.SkipValue();
        NeedSemicolonAfter(std::string(word.substr(0, 40)).c_str());
        Poll();
    }
    // Statements of the bases go first: what a definition adds may hang on them.
    const auto num_own = static_cast<ptrdiff_t>(define.statements.size());
    for (const DefineNode* base : bases)
        for (const Statement& statement : base->statements)
            if (!has(statement.field)) define.statements.push_back(statement);
    for (const DefineNode* base : bases)
        define.user_sections.insert(define.user_sections.end(), base->user_sections.begin(),
                                    base->user_sections.end());
    std::unordered_set<size_t> seen;  // a base may come in by several ways
    std::erase_if(define.user_sections, [&](size_t at) { return !seen.insert(at).second; });
    std::rotate(define.statements.begin(), define.statements.begin() + num_own, define.statements.end());
    NeedSemicolonAtEnd("define node", define.name);
    std::string name = define.name;
    defines_.emplace(std::move(name), std::move(define));
}

// ---- Node sets and the second pass ----

void NetReader::ReadNodeSet()
{
    const size_t name_at = text.At();
    NodeSet set{ReadName("node set"), {}};
    if (!node_set_names_.insert(set.name).second)
        FailAt<4116>(text.PlaceOf(name_at), "node set", set.name.c_str());
    text.context = ", while reading node set '" + set.name + "'";
    if (!text.TryRead('{')) FailAt<4115>(text.PlaceOf(text.At()), "node set");
    if (text.ReadWord() != "Nodes") FailAt<4119>(text.Place());
    if (!text.TryRead('=')) FailAt<4117>(text.PlaceOf(text.At()));
    set.nodes = *ReadNodeList(false, 2957);
    if (!text.TryRead(';')) FailAt<4118>(text.PlaceOf(text.At()));
    if (!text.TryRead('}')) FailAt<2927>(text.PlaceOf(text.At()), "node set");
    if (!text.TryRead(';')) FailAt<4118>(text.PlaceOf(text.At()));
    text.context.clear();
    net_->node_sets.push_back(std::move(set));
}

void NetReader::SecondPass()
{
    second_pass_ = true;
    next_poll_ = 0;
    // Parents first: a table may hang on parents that another node's put-off statement gives states to.
    for (NodeReader& reader : put_off_) TakeUp(reader);
    put_off_.clear();
    for (const Statement& statement : net_put_off_) {
        text.GoTo(statement.value_at);
        if (statement.field == NET_NODESET) {
            ReadNodeSet();
            continue;
        }
        text.context = ", while reading field `ElimOrder` of net '" + net_->name + "'";
        kNetFields[statement.field].read(*this);
        text.context.clear();
    }
}

// Peels off nodes whose parents are all gone; what remains lies on or below a cycle.
void NetReader::CheckNoCycle()
{
    const std::vector<Node*>& nodes = net_->nodes.nodes;
    std::vector<int> waiting(nodes.size());
    std::vector<Node*> free;
    for (const Node* node : nodes)
        for (const Link& link : node->links) waiting[static_cast<size_t>(node->index)] += !IsDelayed(link);
    for (Node* node : nodes)
        if (waiting[static_cast<size_t>(node->index)] == 0) free.push_back(node);
    size_t done = 0;
    std::vector<std::vector<Node*>> children(nodes.size());
    for (Node* node : nodes)
        for (const Link& link : node->links)
            if (!IsDelayed(link)) children[static_cast<size_t>(link.parent->index)].push_back(node);
    for (; done < free.size(); ++done)
        for (Node* child : children[static_cast<size_t>(free[done]->index)])
            if (--waiting[static_cast<size_t>(child->index)] == 0) free.push_back(child);
    if (done == nodes.size()) return;
    // Going from parent to waiting parent ends on the cycle itself.
    const auto waits = [&](const Node* node) { return waiting[static_cast<size_t>(node->index)] > 0; };
    Node* node = *std::find_if(nodes.begin(), nodes.end(), waits);
    Node* child = nullptr;
    for (size_t step = 0; step <= nodes.size(); ++step) {
        child = node;
        node = std::find_if(node->links.begin(), node->links.end(), [&](const Link& link) {
                   return !IsDelayed(link) && waits(link.parent);
               })->parent;
    }
    FailAt<3278>(text.PlaceOf(text.At()), node->name.c_str(), child->name.c_str());
}

// ---- Values ----

std::string NetReader::ReadName(const char* what)
{
    const std::string_view word = text.ReadWord();
    const bool is_star = word == "*" && std::strcmp(what, "node") == 0;  // a node may be called that
    if (!is_star && !IsLegalName(word))
        FailAt<2917>(text.Place(), (word.empty() ? text.PeekText() : std::string(word.substr(0, 40))).c_str(),
                     what);
    return std::string(word);
}

bool NetReader::ReadBool()
{
    const std::string_view word = text.ReadWord();
    if (const EnumWord* found = FindWord(kBoolWords, word)) return found->value != 0;
    FailAt<2977>(text.Place(), std::string(word.substr(0, 40)).c_str());
}

std::string NetReader::ReadText()
{
    if (text.Peek() != '"') FailAt<2978>(text.PlaceOf(text.At()), text.PeekText().c_str());
    return text.ReadQuoted();
}

std::optional<std::vector<Node*>> NetReader::ReadNodeList(bool defer, int define_error)
{
    const size_t start = text.At();
    std::vector<Node*> nodes;
    if (!text.TryRead('(')) FailAt<3293>(text.PlaceOf(text.At()), text.PeekText().c_str());
    while (!text.TryRead(')')) {
        const std::string_view name = text.ReadWord();
        if (text.AtEnd() || text.Peek() == ';') FailAt<3298>(text.PlaceOf(start));
        if (name.empty()) FailAt<3296>(text.PlaceOf(text.At()), text.PeekText().c_str());
        Node* const node = FindNode(*net_, name);
        const std::string shown(name.substr(0, 40));
        if (node == nullptr && FindDefine(name) != nullptr && define_error == 2944)
            FailAt<2944>(text.Place(), "node", shown.c_str());
        if (node == nullptr && FindDefine(name) != nullptr) FailAt<2957>(text.Place(), shown.c_str());
        if (node == nullptr && defer) return std::nullopt;
        if (node == nullptr) FailAt<3295>(text.Place(), shown.c_str());
        nodes.push_back(node);
        if (!text.TryRead(',') && text.Peek() != ')') {
            if (text.AtEnd() || text.Peek() == ';' || text.Peek() == '}') FailAt<3298>(text.PlaceOf(start));
            FailAt<3297>(text.PlaceOf(text.At()));
        }
    }
    // A node may stand in a list once.
    mark_by_node.resize(net_->nodes.nodes.size());
    const Node* twice = nullptr;
    for (const Node* node : nodes)
        if (mark_by_node[static_cast<size_t>(node->index)]++ != 0) twice = node;
    for (const Node* node : nodes) mark_by_node[static_cast<size_t>(node->index)] = 0;
    if (twice != nullptr) FailAt<2928>(text.PlaceOf(start), "node", twice->name.c_str());
    return nodes;
}

// ---- Fields of the net ----

namespace netread {

void Name(NetReader& r)
{
    std::string name = r.ReadName("net");
    ExchangeText(r.TheNet(), r.TheNet().name, name);
}

void NumDimensions(NetReader& r)
{
    const int64_t count = r.text.ReadInteger();
    if (count < 0 || count > INT_MAX) FailAt<2979>(r.text.Place());
    r.TheNet().num_dimensions = static_cast<int>(count);
}

void AutoCompile(NetReader& r)
{
    r.TheNet().auto_compile = r.ReadBool();
}
void AutoUpdate(NetReader& r)
{
    r.TheNet().auto_update = r.ReadBool() ? BELIEF_UPDATE : 0;
}
void MostProbable(NetReader& r)
{
    r.TheNet().most_probable = r.ReadBool();
}

void ElimOrder(NetReader& r)
{
    r.TheNet().elim_order.nodes = *r.ReadNodeList(false, 2944);
    r.TheNet().has_elim_order = true;
}

void Title(NetReader& r)
{
    r.TheNet().text.title = r.ReadText();
}
void Comment(NetReader& r)
{
    r.TheNet().text.comment = r.ReadText();
}
void Author(NetReader& r)
{
    r.TheNet().text.author = r.ReadText();
}
void WhoChanged(NetReader& r)
{
    r.TheNet().text.who_changed = r.ReadText();
}
void WhenChanged(NetReader& r)
{
    r.TheNet().text.when_changed = static_cast<uint32_t>(r.text.ReadInteger());
}

}  // namespace netread

}  // namespace talora
