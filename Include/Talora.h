/* Talora: Bayesian belief networks and decision networks.
 *
 * This header is the whole programming interface.  Conventions:
 *
 * 1. Objects are reached through opaque handles (net_bn*, node_bn*, ...).  What a New... or Copy...
 *    function returns is freed with the matching Delete... function.  What a Get... function
 *    returns belongs to the object; unless said otherwise it stays valid until the object changes.
 * 2. No function throws, prints or exits.  A failure leaves an error record on the calling thread
 *    (GetError_vx) and the function returns its failure value: NULL for handles and vectors, -1 for
 *    counts, indices and other integers, UNDEF_STATE for states, the undefined double for reals.
 *    The object is then as it was before the call.  Records of severity WARNING_SEVERITY and below
 *    leave the result valid.
 * 3. Text is narrow: bytes, ASCII or UTF-8.  Where text is passed in, a string that begins with the
 *    bytes 0xFF 0xFE is taken as UTF-16 (little endian, ended by a 16-bit zero).  Text returned is
 *    always narrow.
 * 4. States, list entries and other indices count from 0.
 * 5. A NULL environment means the default one: the last one made that is still open.
 * 6. Error numbers in the comments are magnitudes; records hold them negative.  Every function that
 *    takes a net may give 5104 (NULL net) and 5143 (deleted or damaged); a node 5105, 5144 and 5184
 *    (deleted); a list 5106 and 5145; an environment 5107 and 5146; a stream 5108 and 5147; a name
 *    5114 (NULL), 5142 (empty) and 5118 (illegal).  Comments give only what is particular.
 * 7. Tables are dense arrays over an ordered list of nodes, the last node varying fastest.  In a
 *    conditional probability table the parents come first and the node's own states are innermost.
 */
#ifndef TALORA_H
#define TALORA_H

#include <stdint.h>

#if defined(TALORA_BUILD)
#define TALORA_API __attribute__((visibility("default")))
#else
#define TALORA_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct environ_vx environ_vx;
typedef struct report_vx report_vx;
typedef struct net_bn net_bn;
typedef struct node_bn node_bn;
typedef struct nodelist_bn nodelist_bn;
typedef struct stream_vx stream_vx;
typedef struct randgen_vx randgen_vx;
typedef struct caseset_cs caseset_cs;
typedef struct dbmgr_cs dbmgr_cs;
typedef struct learner_bn learner_bn;
typedef struct tester_bn tester_bn;
typedef struct sensv_bn sensv_bn;

typedef int bool_vx;     /**< 0 false, anything else true */
typedef int state_bn;    /**< state index, or one of the indicators below */
typedef float prob_bn;   /**< probability */
typedef double util_bn;  /**< utility */
typedef double level_bn; /**< threshold or value of a state */

/* Enumerations are passed as int, so that any value may be passed and is checked. */

enum { UNDEF_STATE = -3, IMPOSS_STATE = -4, EVERY_STATE = -5, UNIFORM_STATE = -7 };

enum {
    NATURE_NODE = 1,
    CONSTANT_NODE = 2,
    DECISION_NODE = 3,
    UTILITY_NODE = 4,
    DISCONNECTED_NODE = 5,
    ADVERSARY_NODE = 6
};
typedef int nodekind_bn;

enum { CONTINUOUS_TYPE = 1, DISCRETE_TYPE = 2 };
typedef int nodetype_bn;

enum {
    NULL_SEVERITY = 0,
    FALSE_ALERT_SEVERITY = 1,
    REPORT_SEVERITY = 2,
    NOTICE_SEVERITY = 3,
    WARNING_SEVERITY = 4,
    ERROR_SEVERITY = 5,
    INTERNAL_SEVERITY = 6
};
typedef int errseverity_vx;

enum {
    MEMORY_CONDITION = 0x08,    /**< memory was out */
    ABORTED_CONDITION = 0x20,   /**< stopped by the user or a handler */
    FRONT_END_CONDITION = 0x40, /**< added with NewError_vx */
    FILE_CONDITION = 0x80,      /**< about the contents of a file */
    FINDING_CONDITION = 0x200   /**< findings contradict one another or the model */
};
typedef int errcond_vx;

enum {
    CHECK_QUERY = -1,
    CHECK_NOTHING = 1, /**< nothing is checked in advance */
    CHECK_HANDLES = 2, /**< handles, missing arguments */
    CHECK_VALUES = 3,  /**< values too: names, probability vectors */
    CHECK_OBJECTS = 4  /**< the whole object is validated before the work starts */
};
typedef int checking_vx;

enum {
    LOOKS_LOSS = 1,       /**< only how a net is drawn */
    INFORMATION_LOSS = 2, /**< something that is known no more, but no answer */
    ANSWERS_LOSS = 3      /**< beliefs, utilities or decisions differ */
};

enum {
    BELIEF_UPDATE = 256,
    MESG_LEN_vx = 256,     /**< size of the buffers given to InitTalora2_bn and CloseTalora_bn */
    NO_VISUAL_INFO = 0x10, /**< controls of ReadNet_bn */
    NO_WINDOW = 0x20,
    MINIMIZED_WINDOW = 0x30,
    REGULAR_WINDOW = 0x70
};

/* ---------------------------------------------------------------------------------------------
 * Environment
 * ------------------------------------------------------------------------------------------- */

/** Makes an environment, to be initialised with InitTalora2_bn.
 *  @param name  what the environment is called in messages, or NULL
 *  @param locn  NULL, "" or "local"; objects of an environment made with "remote" live elsewhere
 *               and are refused by the functions that cannot work remotely
 *  It becomes the default environment. At most 64 may be open at a time. */
TALORA_API environ_vx* NewTaloraEnviron_vx(const char* name, const char* locn);

/** Initialises an environment.
 *  @param mesg  buffer of MESG_LEN_vx bytes for a banner, or on failure for the reason; may be NULL
 *  @return 0 or more; negative on failure */
TALORA_API int InitTalora2_bn(environ_vx* env, char* mesg);

/** Closes an environment: deletes its nets, lists, streams and error records, then the environment.
 *  @param env   NULL for the default environment
 *  @param mesg  as for InitTalora2_bn
 *  @return 0 or more; negative on failure */
TALORA_API int CloseTalora_bn(environ_vx* env, char* mesg);

/** The default environment: the last one made that is still open. NULL when there is none; no error. */
TALORA_API environ_vx* GetDefaultEnviron_vx(void);

/** The version as a number: 601 for version 6.01.
 *  @param version  receives the version text (static), if not NULL */
TALORA_API int GetTaloraVersion_bn(environ_vx* env, const char** version);

/** Sets how thoroughly arguments are checked, for the whole library.
 *  @param setting  1 to 4 (checking_vx), or -1 to query
 *  @return the level before the call.  Error 5529: any other value. */
TALORA_API checking_vx ArgumentChecking_vx(checking_vx setting, environ_vx* env);

/** Limits the memory for tables and lists, for the whole library.
 *  @param max_mem  bytes, at least 200000, or -1 to query
 *  @return the limit before the call.  Error 5620: a smaller value.  A limit below what is in use is
 *          raised to that plus 100000 bytes, with a notice. */
TALORA_API double LimitMemoryUsage_vx(double max_mem, environ_vx* env);

/** Bytes that tables and lists take now, in the whole library. */
TALORA_API double GetMemoryUsage_vx(environ_vx* env);

/** Sets or queries how calls from several threads are kept apart, for the whole library.
 *  @param command  "mode"
 *  @param value    "0" no locks, the caller keeps calls apart; "1" (the default) a lock per net; "2" one
 *                  lock for everything; NULL or "" to query.  The change waits until no other call is
 *                  inside; it is refused from within a callback.
 *  @return the mode before the call */
TALORA_API int ControlConcurrency_vx(environ_vx* env, const char* command, const char* value);

/** A pointer of the caller's own, kept with the environment; the library never reads through it. */
TALORA_API void SetEnvironUserData_vx(environ_vx* env, void* data);
TALORA_API void* GetEnvironUserData_vx(environ_vx* env);

/** The number that stands for an unknown or absent real value. Compare exactly. */
TALORA_API double GetUndefDbl_vx(void);
/** The number that stands for infinity; its negative for minus infinity. */
TALORA_API double GetInfinityDbl_vx(void);

/** Gives a text to the message handler (see SetMessageHandler_vx). */
TALORA_API void PrintToMessagesWindow_vx(environ_vx* env, const char* text);

/** The language of messages; this version has "English" only. */
TALORA_API void SetLanguage_vx(environ_vx* env, const char* language);
TALORA_API const char* GetLanguage_vx(environ_vx* env);

/** The terms that messages use: those of "programming" (the default), "interface", "automation" or
 *  "managed".  Applies to records raised from now on. */
TALORA_API void SetMessageFlavor_vx(environ_vx* env, const char* flavor);
TALORA_API const char* GetMessageFlavor_vx(environ_vx* env);

/** Runs a script of editor commands. There is no script interpreter in the engine, so every script
 *  but an empty one is refused. */
TALORA_API int ExecuteScript_vx(environ_vx* env, const char* script);

/** What the user of the front end may do, as a level 1 to 4 kept for it; -1 to query.
 *  @return the level before the call.  Error 5530: another value. */
TALORA_API int UserAllowed_vx(environ_vx* env, int setting);

/** Where the front end's window should stand. Coordinates 0 to 32000, or -1 to leave one as it is.
 *  @param status  "Regular", "Hidden", "Minimized", "Maximized"; NULL or "" leaves it */
TALORA_API void SetAppWindowPosition_vx(environ_vx* env, int left, int top, int width, int height,
                                        const char* status);
/** Reads the position back; any pointer may be NULL. @return the status word */
TALORA_API const char* GetAppWindowPosition_vx(environ_vx* env, int* left, int* top, int* width, int* height);

/** Answers a question that comes up during a long operation.
 *  @param answers  comma-separated, for example "Yes,Not Now,Cancel"
 *  @param deflt    the answer taken when there is no handler
 *  @return one of the answers (0 the first), or -1 for the default */
typedef int (*question_handler_vx)(environ_vx* env, const char* question, const char* answers,
                                   const char* deflt, void* data);
/** Shows how far a long operation is. @param fraction 0 to 1; negative when it has ended.
 *  @return whether to go on */
typedef bool_vx (*progress_handler_vx)(environ_vx* env, const char* title, double fraction, void* data);
/** Shows a report. @param report NULL for plain text.
 *  @return how it was shown, 0 to 3, or -4 to abort the operation */
typedef int (*message_handler_vx)(environ_vx* env, const char* text, const report_vx* report, void* data);

/** Asks the user for the password of a file.
 *  @param password  receives it, ending with a zero byte; cleared by the library once it is used
 *  @param size      bytes that there is room for, the zero byte included (4096)
 *  @return whether one was given */
typedef bool_vx (*password_handler_vx)(environ_vx* env, const char* question, char* password, int size,
                                       void* data);

/** Handlers that a front end sets; NULL removes one. They may call the interface, but not to change or
 *  delete what the function that called them is working on (5682).  Where another thread's handler waits
 *  for what this thread holds, a handler's call can fail rather than wait forever (5681, 5683). */
TALORA_API void SetQuestionHandler_vx(environ_vx* env, question_handler_vx handler, void* data);
TALORA_API void SetProgressHandler_vx(environ_vx* env, progress_handler_vx handler, void* data);
TALORA_API void SetMessageHandler_vx(environ_vx* env, message_handler_vx handler, void* data);
/** The handler that is set; NULL for none.
 *  @param data  receives what was passed with the handler; may be NULL */
TALORA_API question_handler_vx GetQuestionHandler_vx(environ_vx* env, void** data);
TALORA_API progress_handler_vx GetProgressHandler_vx(environ_vx* env, void** data);
TALORA_API message_handler_vx GetMessageHandler_vx(environ_vx* env, void** data);
/** Without this handler, encrypted files open only through streams that have the password. */
TALORA_API void SetPasswordHandler_vx(environ_vx* env, password_handler_vx handler, void* data);
/** @param data  receives what was passed with the handler; may be NULL */
TALORA_API password_handler_vx GetPasswordHandler_vx(environ_vx* env, void** data);

/** Asks long operations to stop, or withdraws the request. It stays set until withdrawn. Takes no lock
 *  and may be called from any thread or a signal handler. */
TALORA_API void SetHaltFlag_vx(environ_vx* env, bool_vx halt);
TALORA_API bool_vx GetHaltFlag_vx(environ_vx* env);

/** Whether a finding is checked against the model when it is entered also in nets that do not update
 *  automatically. Off by default. */
TALORA_API void SetFindingChecking_vx(environ_vx* env, bool_vx check);
TALORA_API bool_vx GetFindingChecking_vx(environ_vx* env);

/** Whether ReadNet_bn applies the statements that a node inherits from define nodes before the node's own
 *  ones, of which those of the same field are then skipped with a warning (2930).  Off by default: a node's
 *  own statements take the place of inherited ones. */
TALORA_API void SetInheritInFirstPass_vx(environ_vx* env, bool_vx inherit);
TALORA_API bool_vx GetInheritInFirstPass_vx(environ_vx* env);

/** Exercises recovery from extreme conditions.
 *  @param test  "out of memory", "exception", "foreign exception" or "assertion": the named fault
 *               happens inside the call, which fails with its record */
TALORA_API int TestFaultRecovery_vx(environ_vx* env, const char* test);

/* ---------------------------------------------------------------------------------------------
 * Error records.  A record belongs to the thread that raised it.
 * ------------------------------------------------------------------------------------------- */

/** The calling thread's records, newest first.
 *  @param severity  least severity wanted
 *  @param number    only this error number (sign ignored), or 0 for all
 *  @param after     the record returned last, or NULL to begin
 *  @return the next older record, or NULL.  Valid until cleared. */
TALORA_API report_vx* GetError_vx(environ_vx* env, errseverity_vx severity, int number,
                                  const report_vx* after);

TALORA_API int ErrorNumber_vx(const report_vx* error); /**< negative */
TALORA_API const char* ErrorMessage_vx(const report_vx* error);
TALORA_API errseverity_vx ErrorSeverity_vx(const report_vx* error);
/** Whether the record is of this condition (one of errcond_vx). */
TALORA_API bool_vx ErrorCategory_vx(errcond_vx cond, const report_vx* error);
/** The interface function that was running, "" if none. */
TALORA_API const char* ErrorFunction_vx(const report_vx* error);
/** The file being read, "" if none.
 *  @param position  receives the line or position, -1 if unknown; may be NULL */
TALORA_API const char* ErrorFile_vx(const report_vx* error, int64_t* position);
/** How it was shown: 0 not, 1 printed, 2 printed with a sound, 3 in a dialog box. */
TALORA_API int ErrorDisposition_vx(const report_vx* error);
/** What became of the cause: 0 doesn't need fixing ... 5 can't be fixed. */
TALORA_API int ErrorFixStatus_vx(const report_vx* error);
/** The sub-errors of a record, by index; NULL beyond the last. */
TALORA_API report_vx* GetNthSubError_vx(const report_vx* error, int index);

/** Removes one record. */
TALORA_API void ClearError_vx(report_vx* error);
/** Removes the calling thread's records up to and including a severity. */
TALORA_API void ClearErrors_vx(environ_vx* env, errseverity_vx severity);
/** Adds a record of the caller's own. @param number any magnitude; @return the record */
TALORA_API report_vx* NewError_vx(environ_vx* env, int number, errseverity_vx severity, const char* message);
/** Lists the calling thread's records, oldest first, as text.
 *  @param verbosity  0 to 4
 *  @param max_records  where to stop
 *  @return the text; belongs to the thread, valid until its next listing */
TALORA_API const char* ListErrors_vx(environ_vx* env, int verbosity, int max_records);

/** How many reports are shown per thread before they are only kept. Default 1000. */
TALORA_API void SetReportLimit_vx(environ_vx* env, int limit);
TALORA_API int GetReportLimit_vx(environ_vx* env);
/** What the calling thread does with repeats: 1 not shown again once shown in a dialog, 2 (the default)
 *  reduced to one "More ..." line, 3 all shown, 0 nothing is shown at all.  @return the mode before */
TALORA_API int SetRepeatMode_vx(environ_vx* env, int mode);
TALORA_API int GetRepeatMode_vx(environ_vx* env);

/* ---------------------------------------------------------------------------------------------
 * Nets
 * ------------------------------------------------------------------------------------------- */

/** A new net without nodes. Net names need not be unique. */
TALORA_API net_bn* NewNet_bn(const char* name, environ_vx* env);
/** Frees a net with its nodes, tables and findings.  Error 5104: NULL. */
TALORA_API void DeleteNet_bn(net_bn* net);
/** A copy of a net.
 *  @param env      the environment for the copy, NULL for the original's
 *  @param options  words out of "no_nodes", "no_links", "no_tables", "no_visual", "no_window" */
TALORA_API net_bn* CopyNet_bn(const net_bn* net, const char* new_name, environ_vx* env, const char* options);

/** The nets of an environment, in the order in which they were made; NULL beyond the last. */
TALORA_API net_bn* GetNthNet_bn(int index, environ_vx* env);
/** The first net of that name, or NULL. */
TALORA_API net_bn* GetNetNamed_bn(const char* name, environ_vx* env);
TALORA_API environ_vx* GetNetEnviron_bn(const net_bn* net);

TALORA_API void SetNetName_bn(net_bn* net, const char* name);
TALORA_API const char* GetNetName_bn(const net_bn* net);
TALORA_API void SetNetTitle_bn(net_bn* net, const char* title); /**< NULL or "" removes it */
TALORA_API const char* GetNetTitle_bn(const net_bn* net);
TALORA_API void SetNetComment_bn(net_bn* net, const char* comment);
TALORA_API const char* GetNetComment_bn(const net_bn* net);
TALORA_API void SetNetAuthor_bn(net_bn* net, const char* author);
TALORA_API const char* GetNetAuthor_bn(const net_bn* net);
/** Who changed the net last, and when (seconds since 1970, 0 unknown). Kept in its files. */
TALORA_API void SetNetLastChange_bn(net_bn* net, const char* who, uint32_t when);
/** @param when receives the time; may be NULL. @return who, "" if unknown */
TALORA_API const char* GetNetLastChange_bn(const net_bn* net, uint32_t* when);
TALORA_API void SetNetUserData_bn(net_bn* net, void* data); /**< a pointer of the caller's own */
TALORA_API void* GetNetUserData_bn(const net_bn* net);

/** A field of the caller's own, kept in the net and its files.
 *  @param name    a legal name
 *  @param value   bytes, copied; NULL removes the field
 *  @param length  number of bytes, -1 for text ended by a zero
 *  @param kind    must be 0 */
TALORA_API void SetNetUserField_bn(net_bn* net, const char* name, const void* value, int length, int kind);
/** @param length receives the number of bytes; may be NULL. @return the bytes (a zero follows), NULL if
 *  there is no such field; no error */
TALORA_API const char* GetNetUserField_bn(const net_bn* net, const char* name, int* length, int kind);
/** The user fields by index, in the order in which they were made. Beyond the last, name and value are
 *  set to NULL. Any pointer may be NULL. */
TALORA_API void GetNetNthUserField_bn(const net_bn* net, int index, const char** name, const char** value,
                                      int* length, int kind);

/** Whether beliefs are brought up to date at once after each finding.
 *  @param auto_update  0 or BELIEF_UPDATE; 1 is taken as BELIEF_UPDATE.  Error 5241: another value (the
 *                      setting then follows its bit 256)
 *  @return the setting before the call */
TALORA_API int SetNetAutoUpdate_bn(net_bn* net, int auto_update);
TALORA_API int GetNetAutoUpdate_bn(const net_bn* net);
/** Whether the net is compiled when it is read from a file. */
TALORA_API void SetNetAutoCompile_bn(net_bn* net, bool_vx auto_compile);
TALORA_API bool_vx GetNetAutoCompile_bn(const net_bn* net);
/** Number of time dimensions of a net with time delays, 0 to 100. */
TALORA_API void SetNetNumDimensions_bn(net_bn* net, int num_dimensions);
TALORA_API int GetNetNumDimensions_bn(const net_bn* net);

/** All nodes, in the order in which they were made. The list belongs to the net and must not be changed.
 *  @param options  must be NULL or empty */
TALORA_API const nodelist_bn* GetNetNodes2_bn(const net_bn* net, const char* options);
/** The node of that name, or NULL. */
TALORA_API node_bn* GetNodeNamed_bn(const char* name, const net_bn* net);

/* Node sets: named groups of nodes of a net, in the order in which they were made. */

/** Adds a node to a set, making the set when it is new. Does nothing when the node is in it already. */
TALORA_API void AddNodeToNodeset_bn(node_bn* node, const char* nodeset);
/** Takes a node out of a set; an empty set stays. */
TALORA_API void RemoveNodeFromNodeset_bn(node_bn* node, const char* nodeset);
TALORA_API bool_vx IsNodeInNodeset_bn(const node_bn* node, const char* nodeset);
/** Makes an empty set. */
TALORA_API void NewNodeset_bn(const char* nodeset, net_bn* net);
TALORA_API void DeleteNodeset_bn(const char* nodeset, net_bn* net);
TALORA_API void RenameNodeset_bn(const char* nodeset, const char* new_name, net_bn* net);
/** The name of a set by index; NULL beyond the last. */
TALORA_API const char* GetNthNodeset_bn(const net_bn* net, int index);
/** A new list of the members, in the order in which they were added; the caller's to delete. NULL with an
 *  error when there is no such set. */
TALORA_API nodelist_bn* GetNodesetNodes_bn(const char* nodeset, const net_bn* net);

/* ---------------------------------------------------------------------------------------------
 * Nodes
 * ------------------------------------------------------------------------------------------- */

/** A new nature node.
 *  @param name        legal and not used in the net
 *  @param num_states  1 or more for a discrete node, 0 for a continuous one
 *  The node belongs to the net. */
TALORA_API node_bn* NewNode_bn(const char* name, int num_states, net_bn* net);
/** Removes a node with its links; the tables of its children lose it as a parent (see DeleteLink_bn). */
TALORA_API void DeleteNode_bn(node_bn* node);
/** Copies nodes and the links between them.
 *  @param nodes    nodes of one net, without NULL entries
 *  @param net      where to; names already used there get a number appended
 *  @param options  words out of "no_links", "no_tables", "dont_return_list"
 *  Links from nodes outside the list are kept when net is the original's, and otherwise disconnected.
 *  @return a new list of the new nodes in the same order, the caller's to delete; NULL with
 *          "dont_return_list" or on failure */
TALORA_API nodelist_bn* CopyNodes_bn(const nodelist_bn* nodes, net_bn* net, const char* options);

TALORA_API net_bn* GetNodeNet_bn(const node_bn* node);
TALORA_API void SetNodeName_bn(node_bn* node, const char* name);
TALORA_API const char* GetNodeName_bn(const node_bn* node);
TALORA_API void SetNodeTitle_bn(node_bn* node, const char* title);
TALORA_API const char* GetNodeTitle_bn(const node_bn* node);
TALORA_API void SetNodeComment_bn(node_bn* node, const char* comment);
TALORA_API const char* GetNodeComment_bn(const node_bn* node);
TALORA_API void SetNodeUnits_bn(node_bn* node, const char* units);
TALORA_API const char* GetNodeUnits_bn(const node_bn* node);
TALORA_API void SetNodeAuthor_bn(node_bn* node, const char* author);
TALORA_API const char* GetNodeAuthor_bn(const node_bn* node);
TALORA_API void SetNodeLastChange_bn(node_bn* node, const char* who, uint32_t when);
TALORA_API const char* GetNodeLastChange_bn(const node_bn* node, uint32_t* when);
TALORA_API void SetNodeUserData_bn(node_bn* node, void* data);
TALORA_API void* GetNodeUserData_bn(const node_bn* node);
TALORA_API void SetNodeUserField_bn(node_bn* node, const char* name, const void* value, int length, int kind);
TALORA_API const char* GetNodeUserField_bn(const node_bn* node, const char* name, int* length, int kind);
TALORA_API void GetNodeNthUserField_bn(const node_bn* node, int index, const char** name, const char** value,
                                       int* length, int kind);

/** What kind of node it is. DISCONNECTED_NODE and ADVERSARY_NODE cannot be set. */
TALORA_API void SetNodeKind_bn(node_bn* node, nodekind_bn kind);
TALORA_API nodekind_bn GetNodeKind_bn(const node_bn* node);
/** DISCRETE_TYPE or CONTINUOUS_TYPE. */
TALORA_API nodetype_bn GetNodeType_bn(const node_bn* node);
/** Level of measurement: "UNKNOWN_MEASURE", "NOMINAL", "PROXIMAL", "ORDINAL", "INTERVAL", "RATIO". */
TALORA_API void SetNodeMeasure_bn(node_bn* node, const char* measure);
TALORA_API const char* GetNodeMeasure_bn(const node_bn* node);
/** Relation to the parents: "INVERTABLE", "DETERMIN", "CHANCE", "UNKNOWN_CHANCE". */
TALORA_API void SetNodeRelation_bn(node_bn* node, const char* relation);
TALORA_API const char* GetNodeRelation_bn(const node_bn* node);
/** The node's equation text, "" if it has none. */
TALORA_API const char* GetNodeEquation_bn(const node_bn* node);

/** Writes a label for display: the title, or the name when there is no title.
 *  @param options    "multi_line" keeps line breaks, which otherwise become blanks
 *  @param label      buffer, cut on a character boundary and ended with a zero
 *  @param max_chars  its size in bytes, 0 to ask for the length only
 *  @return bytes of the whole label without the zero */
TALORA_API int GetNodeLabel_bn(const node_bn* node, const char* options, char* label, int max_chars);
/** The same for a state: title, name, interval of a discretised node, or "#" and its number. */
TALORA_API int GetNodeStateLabel_bn(const node_bn* node, state_bn state, const char* options, char* label,
                                    int max_chars);

/* States */

TALORA_API int GetNodeNumberStates_bn(const node_bn* node);
/** Names one state: a legal name, unique in the node.  Equations of the node and of its children that use
 *  the old name get the new one.  Errors 5114: NULL; 5142: "". */
TALORA_API void SetNodeStateName_bn(node_bn* node, state_bn state, const char* state_name);
/** Names all states: comma-separated, as many as there are states.  Errors 5114: NULL; 5142: "". */
TALORA_API void SetNodeStateNames_bn(node_bn* node, const char* state_names);
/** Removes the name of a state, or of all states (EVERY_STATE); titles stay. */
TALORA_API void RemoveNodeStateNames_bn(node_bn* node, state_bn state);
TALORA_API const char* GetNodeStateName_bn(const node_bn* node, state_bn state); /**< "" if unnamed */
TALORA_API void SetNodeStateTitle_bn(node_bn* node, state_bn state, const char* title);
TALORA_API const char* GetNodeStateTitle_bn(const node_bn* node, state_bn state);
TALORA_API void SetNodeStateComment_bn(node_bn* node, state_bn state, const char* comment);
TALORA_API const char* GetNodeStateComment_bn(const node_bn* node, state_bn state);
/** The state of that name, or UNDEF_STATE; no error. */
TALORA_API state_bn GetStateNamed_bn(const char* name, const node_bn* node);
/** Adds states at a position.
 *  @param first_state  where the first new state comes; -1 at the end
 *  @param state_names  comma-separated names, or NULL; when the states have names and the new ones have
 *                      none, all names are dropped with a warning
 *  @param cpt_fill     what the tables get for them: -1 or the undefined double: missing; 0: zero */
TALORA_API void AddNodeStates_bn(node_bn* node, state_bn first_state, const char* state_names, int num_states,
                                 double cpt_fill);
/** Removes a state; the tables of the node and its children lose its entries (rows that summed to 1 are
 *  rescaled). A finding of that state, or a likelihood, is dropped. */
TALORA_API void RemoveNodeState_bn(node_bn* node, state_bn state);
/** @param new_order  one entry per state: the present index of the state that comes there */
TALORA_API void ReorderNodeStates_bn(node_bn* node, const state_bn* new_order);

/* Levels */

/** Thresholds of a continuous node (num_states + 1 values, increasing or decreasing; num_states 0: its
 *  range, 2 values), or the values of a discrete node's states (num_states values). NULL removes them. */
TALORA_API void SetNodeLevels_bn(node_bn* node, int num_states, const level_bn* levels);
/** The levels, NULL if there are none: see GetNodeNumberLevels_bn for how many. */
TALORA_API const level_bn* GetNodeLevels_bn(const node_bn* node);
TALORA_API int GetNodeNumberLevels_bn(const node_bn* node);

/* Links */

/** Makes parent the last parent of child. The child's tables are repeated for each state of it.
 *  @return the index of the link in the child's parent list.  Error 3213: nodes of different nets. */
TALORA_API int AddLink_bn(node_bn* parent, node_bn* child);
/** Removes a link. The child's tables keep the slice for the removed parent's first state; for the
 *  average of all, set the table again. */
TALORA_API void DeleteLink_bn(int parent_index, node_bn* child);
/** Replaces a parent; NULL disconnects the link, leaving a node of kind DISCONNECTED_NODE in the child's
 *  parent list that remembers the parent's name and states. The new parent must have as many states as
 *  the old one for the tables to stay; otherwise they are carried as by DeleteLink_bn and AddLink_bn. */
TALORA_API void SwitchNodeParent_bn(int parent_index, node_bn* child, node_bn* new_parent);
/** Whether the link has been disconnected. */
TALORA_API bool_vx IsLinkDisconnected_bn(int parent_index, const node_bn* child);
/** Connects the disconnected links of a node to the nodes they came from, found by name. Fails without any
 *  change when one of them has left the net. @return how many were connected */
TALORA_API int ReconnectNodeLinks_bn(node_bn* child);
/** The parents, in order. Belongs to the node, valid until its links change. */
TALORA_API const nodelist_bn* GetNodeParents_bn(const node_bn* node);
/** The children, in the order in which they were linked. As above. */
TALORA_API const nodelist_bn* GetNodeChildren_bn(const node_bn* node);
/** Whether there is a directed path from one node to another along links without delay. */
TALORA_API bool_vx IsNodeAncestor_bn(const node_bn* ancestor, const node_bn* descendent);
TALORA_API void SetNodeInputName_bn(node_bn* node, int parent_index, const char* name); /**< NULL removes */
TALORA_API const char* GetNodeInputName_bn(const node_bn* node, int parent_index);
/** Gives a link a time delay: a number as text, one per time dimension separated by commas; NULL, "" or
 *  zeros remove it. */
TALORA_API void SetNodeInputDelay_bn(node_bn* node, int parent_index, const char* delay);
TALORA_API const char* GetNodeInputDelay_bn(const node_bn* node, int parent_index);
/** How the node persists over time: text as for SetNodeInputDelay_bn. */
TALORA_API void SetNodePersistance_bn(node_bn* node, const char* persist);
TALORA_API const char* GetNodePersistance_bn(const node_bn* node);

/* ---------------------------------------------------------------------------------------------
 * Node lists: ordered lists of nodes that may hold NULL entries.
 * ------------------------------------------------------------------------------------------- */

/** A new list with that many NULL entries, the caller's to delete. @param net any net of the environment */
TALORA_API nodelist_bn* NewNodeList2_bn(int length, const net_bn* net);
TALORA_API nodelist_bn* DupNodeList_bn(const nodelist_bn* list);
TALORA_API void DeleteNodeList_bn(nodelist_bn* list); /**< not the nodes; NULL does nothing */
TALORA_API void ClearNodeList_bn(nodelist_bn* list);
TALORA_API int LengthNodeList_bn(const nodelist_bn* list);
TALORA_API node_bn* NthNode_bn(const nodelist_bn* list, int index);
TALORA_API void SetNthNode_bn(nodelist_bn* list, int index, node_bn* node);
/** Inserts a node before the entry at index; -1 at the end. */
TALORA_API void AddNodeToList_bn(node_bn* node, nodelist_bn* list, int index);
/** Removes and returns the entry at index; -1 the last. */
TALORA_API node_bn* RemoveNthNode_bn(nodelist_bn* list, int index);
/** @return the position of the node from start_index on, -1 if it is not there */
TALORA_API int IndexOfNodeInList_bn(const node_bn* node, const nodelist_bn* list, int start_index);

/* ---------------------------------------------------------------------------------------------
 * Tables.  parent_states: one state per parent in parent order; NULL for a node without parents.
 * ------------------------------------------------------------------------------------------- */

/** Sets one row. @param probs one entry per state, sum 1 within 2e-6; all zeros: the parent states cannot
 *  occur together.  EVERY_STATE among the parent states sets all their rows.
 *  Errors 5113 (NULL), 5133 (bad vector), 3081 and 3082 (cannot have a table), 3615 (too large). */
TALORA_API void SetNodeProbs_bn(node_bn* node, const state_bn* parent_states, const prob_bn* probs);
/** One row, or NULL if there is no table. Missing entries hold the missing marker (see IsMissingProb_bn). */
TALORA_API const prob_bn* GetNodeProbs_bn(const node_bn* node, const state_bn* parent_states);
/** Sets the whole table: rows in table order. @param num_entries must be the table's size */
TALORA_API void SetNodeTable_bn(node_bn* node, const prob_bn* probs, int64_t num_entries);
/** The whole table, NULL if there is none. @param num_entries receives the size; may be NULL */
TALORA_API const prob_bn* GetNodeTable_bn(const node_bn* node, int64_t* num_entries);
TALORA_API bool_vx IsMissingProb_bn(prob_bn entry);    /**< not yet given */
TALORA_API bool_vx IsImpossibleProb_bn(prob_bn entry); /**< parent states cannot occur together */
TALORA_API prob_bn GetMissingProb_bn(void);            /**< the entry that stands for one not yet given */
/** Product of the state counts of the node and its parents (saturating at 1.8e305). */
TALORA_API double SizeNodeTable_bn(const node_bn* node);

/** For a deterministic node: its state under the parent states. */
TALORA_API void SetNodeFuncState_bn(node_bn* node, const state_bn* parent_states, state_bn state);
TALORA_API state_bn GetNodeFuncState_bn(const node_bn* node, const state_bn* parent_states);
/** For a deterministic continuous node (or a utility node): its value under the parent states. */
TALORA_API void SetNodeFuncReal_bn(node_bn* node, const state_bn* parent_states, double value);
TALORA_API double GetNodeFuncReal_bn(const node_bn* node, const state_bn* parent_states);
/** How many cases are behind a row, 0 or more. */
TALORA_API void SetNodeExperience_bn(node_bn* node, const state_bn* parent_states, double experience);
TALORA_API double GetNodeExperience_bn(const node_bn* node, const state_bn* parent_states);
/** Removes the probability, function and experience tables. */
TALORA_API void DeleteNodeTables_bn(node_bn* node);
/** @param complete receives whether no entry is missing; may be NULL.  @return whether there is a
 *  probability or function table */
TALORA_API bool_vx HasNodeTable_bn(const node_bn* node, bool_vx* complete);
/** Whether every row of the table gives one state probability 1. */
TALORA_API bool_vx IsNodeDeterministic_bn(const node_bn* node);

/* ---------------------------------------------------------------------------------------------
 * Undo
 *
 * Every call that changes a net is one step, which can be undone and redone exactly; a call that fails or
 * changes nothing leaves none.  Results that are worked out (beliefs, junction tree, an elimination order
 * found by compiling) are not steps: they come and go with the model they belong to.  Pointers of the
 * caller's own (SetNodeUserData_bn) are not recorded.  Nodes that come back have the handles they had.
 * ------------------------------------------------------------------------------------------- */

/** Where a net stands with groups of steps. */
typedef enum {
    NO_UNDO_GROUP = 0,
    OPEN_UNDO_GROUP = 1,   /**< steps are being collected */
    ABORTED_UNDO_GROUP = 2 /**< given up: everything is taken back until the group is closed */
} undogroup_vx;

/** Sets how much of a net's history is kept, and so turns undoing on, or off when both limits are 0. Turning
 *  it off discards the history; lower limits discard the oldest steps at once.  A new net has both limits 0.
 *  @param count_limit   steps kept at most; -1 leaves it as it is.  With 0 and a memory limit the last step
 *                       is kept.
 *  @param memory_limit  bytes that they may take; -1 leaves it as it is.  With 0 and a count limit memory is
 *                       not limited.  The last step is kept even if it alone takes more.
 *  @param options       must be NULL or empty */
TALORA_API void SetNetNumUndos_bn(net_bn* net, int count_limit, double memory_limit, const char* options);
/** @param memory_limit  receives the memory limit; may be NULL.  @return the count limit */
TALORA_API int GetNetNumUndos_bn(const net_bn* net, double* memory_limit);
/** Turns undoing on or off with the limits as they are; turning it off discards the history.
 *  Error 3595: on, while both limits are 0. */
TALORA_API void SetNetUndoing_bn(net_bn* net, bool_vx on);
TALORA_API bool_vx GetNetUndoing_bn(const net_bn* net);

/** Undoes the last step; called again, the one before. Fails while a group is open.
 *  @param to_when  must be -1
 *  @return whether there was one */
TALORA_API bool_vx UndoNetLastOper_vx(net_bn* net, double to_when);
/** Redoes the step undone last; called again, the one after it. A new step discards those that could be
 *  redone. Otherwise as above. */
TALORA_API bool_vx RedoNetOper_vx(net_bn* net, double to_when);
/** What undoing would undo ("add link Smoking -> Cancer"): 0 the next step, 1 the one before ...; NULL
 *  beyond the oldest. Belongs to the net, valid until it changes. */
TALORA_API const char* GetNetNthUndo_bn(const net_bn* net, int index);
/** What redoing would do again, 0 the next step. As above. */
TALORA_API const char* GetNetNthRedo_bn(const net_bn* net, int index);
/** Bytes that the kept steps take now. */
TALORA_API double GetNetUndoMemory_bn(const net_bn* net);

/** Begins a group: what is done until the matching close is one step. Groups may be nested; the outermost
 *  counts. While undoing is off, opening and closing do nothing.
 *  @param description  of the step; NULL or "" takes that of the first operation in it */
TALORA_API void OpenNetUndoGroup_bn(net_bn* net, const char* description);
TALORA_API void CloseNetUndoGroup_bn(net_bn* net);
/** Gives a group up: takes back at once what was done since the outermost group was opened, and when that is
 *  closed what was still done afterwards. The groups must be closed nevertheless. */
TALORA_API void AbortNetUndoGroup_bn(net_bn* net);
TALORA_API int GetNetUndoGroup_bn(const net_bn* net); /**< one of undogroup_vx */

/* ---------------------------------------------------------------------------------------------
 * Compiling
 * ------------------------------------------------------------------------------------------- */

/** Builds the junction tree, finding an elimination order first when none is stored. Beliefs are then found
 *  when they are asked for, or at once if the net auto-updates. */
TALORA_API void CompileNet_bn(net_bn* net);
/** Searches for a better elimination order, stores it and compiles. Never worse than before.
 *  @param seconds  how long, at most; ends earlier when the order is proven best or the halt flag is set
 *  @param options  must be NULL or empty.  Not for nets with decision nodes. */
TALORA_API void OptimizeNetElimOrder_bn(net_bn* net, double seconds, const char* options);
/** Discards the junction tree. */
TALORA_API void UncompileNet_bn(net_bn* net);
TALORA_API bool_vx IsNetCompiled_bn(const net_bn* net);
/** Stores an elimination order: every nature and decision node once. NULL removes it. The list is copied.
 *  Errors 3556 (a NULL entry), 3277. */
TALORA_API void SetNetElimOrder_bn(net_bn* net, const nodelist_bn* order);
/** The stored order, belonging to the net; NULL if none. */
TALORA_API const nodelist_bn* GetNetElimOrder_bn(const net_bn* net);
/** The sum over the steps of the stored order of the table sizes, as the search counts it; undefined without
 *  a stored order. */
TALORA_API double GetNetElimCost_bn(const net_bn* net);

/** Table entries of the junction tree under the current findings, cliques and separators.
 *  @param method must be 0 */
TALORA_API double SizeCompiledNet_bn(const net_bn* net, int method);
/** The junction tree as a table in text. Belongs to the net, valid until the next report. */
TALORA_API const char* ReportJunctionTree_bn(const net_bn* net);
/** Walking the tree. Clique 0 is the root. */
TALORA_API int GetNetNumCliques_bn(const net_bn* net);
TALORA_API const nodelist_bn* GetCliqueNodes_bn(const net_bn* net, int clique); /**< elimination order */
TALORA_API int GetCliqueNumNeighbors_bn(const net_bn* net, int clique);
TALORA_API int GetCliqueNeighbor_bn(const net_bn* net, int clique, int index); /**< a clique's number */
TALORA_API double GetCliqueSize_bn(const net_bn* net, int clique);
/** Totals of table entries; any pointer may be NULL. */
TALORA_API void GetCompiledNetSizes_bn(const net_bn* net, double* sum_cliques, double* sum_with_separators,
                                       double* sum_under_findings);
/** The clique that holds the node's table, -1 if none. */
TALORA_API int GetNodeHomeClique_bn(const node_bn* node);

/* ---------------------------------------------------------------------------------------------
 * Findings and beliefs
 * ------------------------------------------------------------------------------------------- */

/** Enters that the node is in a state. Must agree with what is entered already (errors 3300 to 3319). */
TALORA_API void EnterFinding_bn(node_bn* node, state_bn state);
/** Enters that the node is not in a state. */
TALORA_API void EnterFindingNot_bn(node_bn* node, state_bn state);
/** Enters how probable the observation is in each state: entries of 0 or more, only their ratios matter.
 *  Multiplies into a likelihood entered before; the product keeps its range, however many there are. */
TALORA_API void EnterNodeLikelihood_bn(node_bn* node, const prob_bn* likelihood);
/** Enters a real value. On a discretised node it is the state whose interval holds it; on a discrete node
 *  with levels, the state that has exactly that value. */
TALORA_API void EnterNodeValue_bn(node_bn* node, double value);
/** Enters what the beliefs of the node are to become (sum 1): a likelihood is found that makes them so. */
TALORA_API void EnterNodeCalibration_bn(node_bn* node, const prob_bn* calibration);
/** Enters a measurement of a discretised node: normally distributed error, standard deviation above 0. */
TALORA_API void EnterGaussianFinding_bn(node_bn* node, double mean, double std_dev);
/** Enters that the value of a discretised node lies between two values. */
TALORA_API void EnterIntervalFinding_bn(node_bn* node, double low, double high);
TALORA_API void RetractNodeFindings_bn(node_bn* node);
TALORA_API void RetractNetFindings_bn(net_bn* net);

/** The state entered; UNDEF_STATE if none, or if the finding is a likelihood. */
TALORA_API state_bn GetNodeFinding_bn(const node_bn* node);
/** The likelihood over the states that the findings amount to, all 1 without a finding. NULL for a node
 *  without states. Belongs to the node. */
TALORA_API const prob_bn* GetNodeLikelihood_bn(const node_bn* node);
/** The value entered; undefined if none. */
TALORA_API double GetNodeValueEntered_bn(const node_bn* node);
TALORA_API bool_vx HasNodeFinding_bn(const node_bn* node);

/** The beliefs of a node, after updating if need be: one entry per state, sum 1. Belongs to the node, valid
 *  until findings, tables or structure change. Error 2364: not a nature, decision or disconnected node. */
TALORA_API const prob_bn* GetNodeBeliefs_bn(node_bn* node);
/** The beliefs of a few nodes under the findings entered, without compiling the net: only the part of the net
 *  that matters for them is looked at, which is far quicker for few nodes of a large net.  Nodes below all
 *  that is known, and nodes that the findings cut off, take no part.  What was worked out is kept for the
 *  next question with the same nodes and the same nodes observed, whatever their states.
 *  @param nodes            nature or decision nodes with states (6880), of one net
 *  @param log_probability  receives the natural logarithm of the probability of all findings, which may need
 *                          a larger part of the net; NULL: not asked, and a contradiction among findings that
 *                          do not matter for the nodes goes unnoticed
 *  @return the entries of one node after another; belongs to the net, valid until the next query or until the
 *          net is changed or compiled.  NULL after an error (3305: the findings contradict one another) */
TALORA_API const prob_bn* QueryBeliefs_bn(const nodelist_bn* nodes, double* log_probability);

/** The beliefs of nodes under findings that are handed over as numbers, for one case or many at once: the
 *  quickest way where findings come from a program.  The net's own findings are neither used nor changed.
 *  @param known      the nodes that the findings are of, of one net
 *  @param states     num_cases rows with an entry per node of `known`: its state, or a negative number (like
 *                    UNDEF_STATE) where it is not known
 *  @param num_cases  0 or more (7401)
 *  @param asked      nature or decision nodes with states (6880) of the same net, as those of `known`
 *  @param beliefs    receives num_cases rows: the entries of one node of `asked` after another
 *  @param log_probabilities  receives for each case the natural logarithm of the probability of its findings;
 *                    may be NULL
 *  A case whose findings contradict one another gets minus infinity (the system's) there, and for beliefs
 *  entries that are not numbers; that is no error.  Compiles the net if it is not compiled.  What has been
 *  worked out serves the next call; many cases of a small net are propagated sixteen at a time, which may
 *  differ from one at a time in the last digits.  O(cases x update).
 *  After an error (7400: a state is too large; 7402: an array is NULL; ...) nothing has been written, but after
 *  6582 (halted) the cases before.
 *  @return the number of cases, or -1 after an error */
TALORA_API int GetBeliefsOfCases_bn(const nodelist_bn* known, const state_bn* states, int num_cases,
                                    const nodelist_bn* asked, prob_bn* beliefs, double* log_probabilities);

/** The mean of the node's numeric value under its beliefs: state values, or midpoints of intervals.
 *  @param std_dev  receives the standard deviation; may be NULL.  Undefined without levels. */
TALORA_API double GetNodeExpectedValue_bn(node_bn* node, double* std_dev);
/** The numeric value that a state stands for; undefined without levels. */
TALORA_API double GetNodeStateValue_bn(const node_bn* node, state_bn state);
/** Probability of all findings: 0 if they contradict one another or the model, with the error on record; -1
 *  on another failure.  Without any it is 1, at once: tables that leave no configuration possible show when
 *  beliefs are updated (3305, or an error that names the table), or once there is a finding. */
TALORA_API double FindingsProbability_bn(net_bn* net);
/** Its natural logarithm, which does not underflow: minus infinity (the system's) where it is 0, and 0
 *  without findings. */
TALORA_API double LogFindingsProbability_bn(net_bn* net);
/** Whether the beliefs are up to date; does not update. */
TALORA_API bool_vx IsBeliefUpdated_bn(const node_bn* node);
/** Brings all beliefs up to date now.  A long update reports to the progress handler (title "Operation in
 *  progress ...") and stops when the handler or the halt flag asks for it (6013); the next one goes on from
 *  there. */
TALORA_API void UpdateNetBeliefs_bn(net_bn* net);

/* ---------------------------------------------------------------------------------------------
 * Streams and net files
 * ------------------------------------------------------------------------------------------- */

/** A stream for a file on disk; nothing is opened yet. @param access must be NULL */
TALORA_API stream_vx* NewFileStream_vx(const char* filename, environ_vx* env, const char* access);
/** A stream whose contents live in memory. @param name used in messages, and its extension for the type of
 *  file when writing; may be NULL */
TALORA_API stream_vx* NewMemoryStream_vx(const char* name, environ_vx* env, const char* access);
/** Frees a stream and its contents, never the file. NULL does nothing. */
TALORA_API void DeleteStream_vx(stream_vx* stream);
/** Password for encrypting what is written to the stream and decrypting what is read from it; NULL removes
 *  it.  Only binary net files (.tala) are encrypted, and of these all but the head in plain text (time,
 *  sizes, comment of the net): with a text file it is not used, and writing one warns (6854).  The password
 *  "simple" stands for a key that is built into the library: it hides the contents from a casual reader and
 *  protects nothing.  The password is copied, and wiped from memory when it is removed.
 *  Error 5172: empty. */
TALORA_API void SetStreamEncryption_vx(stream_vx* stream, const char* password);
/** The same under the name of the object interfaces. */
TALORA_API void SetStreamPassword_vx(stream_vx* stream, const char* password);
/** Whether a password is set; the password itself is not given out. */
TALORA_API bool_vx HasStreamPassword_vx(const stream_vx* stream);
/** Sets the contents of a memory stream; the bytes are copied. */
TALORA_API void SetStreamContents_vx(stream_vx* stream, const void* buffer, int64_t length);
/** The contents of a memory stream; a zero byte follows them.
 *  @param length  receives their length; may be NULL only if they are text */
TALORA_API const char* GetStreamContents_vx(const stream_vx* stream, int64_t* length);
TALORA_API const char* GetStreamName_vx(const stream_vx* stream);
/** Writes the bytes of one stream into another, as they are; a file is replaced as a whole or not at all.
 *  With this a program saves a text of its own as safely as a net is saved.  Errors are those of reading and
 *  writing files; the target then has what it had. */
TALORA_API void CopyStream_vx(const stream_vx* source, stream_vx* target);

/** Reads a net from a file of any format: the text and binary formats of this system, and the net files of
 *  other programs (GetNthFileFormat_vx), packed with gzip or not.  The contents decide which it is, not the
 *  name of the file.  The password of an encrypted file comes from the stream or from the user
 *  (SetPasswordHandler_vx).
 *
 *  Of a file of another program, names that break the rule become legal and unique ones, with the original as
 *  title; what could not be carried is listed by GetNthStreamLoss_vx.
 *  @param control  NO_VISUAL_INFO, NO_WINDOW, MINIMIZED_WINDOW or REGULAR_WINDOW
 *  @return the new net; NULL with error records, which name file and line, if the file cannot be read as a
 *          net (7000: its format is not known).  Warnings name what was skipped. */
TALORA_API net_bn* ReadNet_bn(stream_vx* stream, int control);
/** Writes a net in the format that the extension of the stream's name shows: binary for .tala, the format of
 *  another program for one of its extensions (GetNthFileFormat_vx), and else as text (.dne).
 *  A binary file is encrypted if the stream, or else the net, has a password; it is then readable by its
 *  owner only.  A file is replaced as a whole or not at all. */
TALORA_API void WriteNet_bn(const net_bn* net, stream_vx* stream);
/** Writes a net in a format of another program, whatever the name of the stream.
 *  @param format   its name or extension, as GetNthFileFormat_vx lists them, in any case; NULL or empty: as
 *                  WriteNet_bn.  Error 7037: there is none of this name
 *  @param options  NULL, empty, or "strict": fail (7039) with nothing written where the format cannot hold
 *                  something that answers depend on
 *
 *  What could not be carried is listed by GetNthStreamLoss_vx.  A net that came from a file of the same format
 *  gets the names that it had there. */
TALORA_API void WriteNetAs_bn(const net_bn* net, stream_vx* stream, const char* format, const char* options);
/** The format, with its version where it has one, of the net that was last read from the stream or written to
 *  it, such as "XMLBIF 0.3"; NULL before that and after a failure to read. */
TALORA_API const char* GetStreamFormat_vx(const stream_vx* stream);
/** One kind of thing that the last net read from the stream, or written to it, lost on the way.
 *  @param index     from 0; losses come with the gravest first when writing
 *  @param severity  receives ANSWERS_LOSS, INFORMATION_LOSS or LOOKS_LOSS
 *  @param what      receives the kind of thing, such as "experience"
 *  @param nodes     receives the names of the nodes concerned, with ", " between them; valid until the next call
 *  @param instead   receives what was done instead
 *
 *  Each pointer may be NULL.  @return FALSE, with nothing received, behind the last loss. */
TALORA_API bool_vx GetNthStreamLoss_vx(stream_vx* stream, int index, int* severity, const char** what,
                                       const char** nodes, const char** instead);
/** The formats of net files, from index 0: name, extensions (the usual one first, blanks between them), what
 *  it is, and whether nets are read from it and written to it.  Each pointer may be NULL.
 *  @return FALSE, with nothing received, behind the last format */
TALORA_API bool_vx GetNthFileFormat_vx(int index, const char** name, const char** extensions,
                                       const char** about, bool_vx* can_read, bool_vx* can_write);

/** Password for encrypting the net when it is written as a binary file to a stream without a password;
 *  NULL removes it.  A net read from an encrypted file has that file's password, a copy has its original's.
 *  Error 5172: empty. */
TALORA_API void SetNetPassword_bn(net_bn* net, const char* password);
/** Whether a password is set; the password itself is not given out. */
TALORA_API bool_vx HasNetPassword_bn(const net_bn* net);

/** What files are encrypted with from now on: "AES" (AES-256 in Galois/Counter Mode, the default) or
 *  "Blowfish" (with an HMAC), for sites that ask for it.  Reading goes by the file.  Error 6855: another. */
TALORA_API void SetFileCipher_vx(environ_vx* env, const char* cipher);
TALORA_API const char* GetFileCipher_vx(environ_vx* env);
/** How much work an encrypted file may ask for before its password is known to be right: iterations of the
 *  key derivation, 2,000,000 (some seconds) unless set.  Error 6856: below 600,000, which are written. */
TALORA_API void SetMaxKeyIterations_vx(environ_vx* env, int iterations);
TALORA_API int GetMaxKeyIterations_vx(environ_vx* env);

/* ---------------------------------------------------------------------------------------------
 * Most probable configurations
 * ------------------------------------------------------------------------------------------- */

/** The mode in which updating finds the most probable configuration of all nodes given the findings (the
 *  most probable explanation).  A belief is then the probability of the best configuration that has the
 *  node in that state, divided by that of the best of all, so states of a best configuration have belief 1;
 *  and the probability of findings is that of the best configuration.  Undoable.
 *  Errors: 3465 the net has decision nodes, 3051 a node has no states. */
TALORA_API void SetNetMostProbable_bn(net_bn* net, bool_vx most_probable);
TALORA_API bool_vx GetNetMostProbable_bn(const net_bn* net);

/** Says how probable the most probable configuration is, as a line of text, and stores each node's state in
 *  it.  Empty if some node has no such state.  The net must be in the mode (6801).  Belongs to the net,
 *  valid until the next report. */
TALORA_API const char* ReportMostProbable_bn(net_bn* net);

/** The state of a node in the configuration that was reported last, or UNDEF_STATE. */
TALORA_API state_bn GetNodeMostProbableState_bn(const node_bn* node);

/** The nth most probable configuration given the findings, exactly; the mode need not be on, and findings
 *  and beliefs stay as they are.  Asking for nth + 1 afterwards goes on from where the search stood.
 *  @param setting  receives a state for each node of the net, in their order (6804 NULL): UNDEF_STATE for
 *                  documentation nodes
 *  @param nth      0 is the most probable (6802 below 0; 6803 not so many are possible)
 *  @return the natural logarithm of the configuration's probability times the weights of likelihood
 *          findings; undefined after an error (3465, 3051, 3305).
 *  Cost: about one update and (number of nodes) small updates for each configuration. */
TALORA_API double MostProbableConfig_bn(net_bn* net, state_bn* setting, int nth);

/** The same for some nodes of a net: two configurations count as different if these nodes differ; the other
 *  nodes take the states that make the whole most probable (they are maximised, not summed over).
 *  @param setting  one state for each node of the list */
TALORA_API double MostProbableSetting_bn(const nodelist_bn* nodes, state_bn* setting, int nth);

/* ---------------------------------------------------------------------------------------------
 * Equations: the relation of a node to its parents as a line of text
 * ------------------------------------------------------------------------------------------- */

/** Gives a node an equation: "x (a, b) = ..." for its value or "P (x | a, b) = ..." for its
 *  probability, where x is the node and a, b are parents (or link names, where links have them).
 *  @param equation  "" or NULL takes the equation away
 *  The table does not change: see EquationToTable_bn.  After an error (the text is refused with the
 *  number and message of the mistake) the node has the equation that it had. */
TALORA_API void SetNodeEquation_bn(node_bn* node, const char* equation);

/** Whether a text is in order as an equation of a node; if not, a record says what is wrong.
 *  @param equation  NULL for the one that the node has (6417 if it has none)
 *  @param place     receives the byte in the text that the mistake is at, -1 if none; may be NULL */
TALORA_API bool_vx CheckNodeEquation_bn(const node_bn* node, const char* equation, int* place);

/** Fills a node's table from its equation; does nothing for a node without one.
 *
 *  Where all is discrete, or the equation is a distribution that can be integrated over the node's
 *  intervals, the table is exact.  Otherwise values are drawn inside intervals, from the net's random
 *  generator or else the environment's.  A deterministic equation gives a table of states or values;
 *  one that has to be sampled gives probabilities.
 *  @param num_samples  draws for each configuration of the parents (5572 below 1); 1 where all is exact
 *  @param samp_unc     1: the sum of each row, of a sampled one the number of its samples, becomes its
 *                      experience, and rows that are all zero become uniform with experience 0;
 *                      0: it does not, and rows that are all zero are made uniform (5573 for others)
 *  @param add_exist    true: samples are added to those that the table stands for already (probability
 *                      times experience, or one sample where there is no experience)
 *  Progress is reported; after a halt the rows that are done are kept.  After an error the table is
 *  what it was: 2020, 2313 (thresholds missing), 2284, 6407 (too large), 6411 to 6416 (a value that
 *  cannot be used), and the mistakes of the equation itself.  Cost: one evaluation for each cell, or
 *  for each sample. */
TALORA_API void EquationToTable_bn(node_bn* node, int num_samples, int samp_unc, bool_vx add_exist);

/** The value of a formula in the language of equations; the undefined number where it is undefined.
 *  @param names, values  count variables that it may use; may be NULL for none
 *  @param place          receives the byte that a mistake is at, -1 if none; may be NULL */
TALORA_API double CalcFormula_bn(environ_vx* env, const char* formula, const char* const* names,
                                 const double* values, int count, int* place);

/** The operators, functions, distributions, constants and units of equations, as a page in Markdown. */
TALORA_API const char* GetEquationReference_bn(environ_vx* env);

/* ---------------------------------------------------------------------------------------------
 * Random numbers
 * ------------------------------------------------------------------------------------------- */

/** Makes a random generator.
 *  @param seed     decimal digits (6404 if not, or above 2^63 - 1), or "-1" to start from the clock;
 *                  the same seed gives the same numbers on every machine
 *  @param options  NULL or "" */
TALORA_API randgen_vx* NewRandomGenerator_vx(const char* seed, environ_vx* env, const char* options);

/** Deletes a generator; nets that use it go back to their environment's.  NULL does nothing. */
TALORA_API void DeleteRandomGen_vx(randgen_vx* generator);

/** The state as text: index, then sixteen words in hexadecimal.  Valid until asked for again. */
TALORA_API const char* GetRandomGenState_vx(randgen_vx* generator);

/** Draws from a generator (NULL for that of the default environment, which always starts from seed 0):
 *  32 random bits, or a uniform number in [0, 1). */
TALORA_API uint32_t DrawRandomInteger_vx(randgen_vx* generator);
TALORA_API double DrawRandomUniform_vx(randgen_vx* generator);

/** Whether seeding "from the clock" counts from 0 instead, and binary files that are not encrypted do not
 *  store when they were written, so that whole runs can be repeated. */
TALORA_API void SetReproducibleRandom_vx(environ_vx* env, bool_vx reproducible);
TALORA_API bool_vx GetReproducibleRandom_vx(environ_vx* env);

/** The generator that a net draws from, NULL for its environment's.  It stays the caller's, must be of
 *  the net's environment (6421), and is not locked: it belongs to the thread that uses the net. */
TALORA_API void SetNetRandomGen_bn(net_bn* net, randgen_vx* generator);
TALORA_API randgen_vx* GetNetRandomGen_bn(const net_bn* net);

/** Ways of drawing a random case.
 *
 *  FORWARD_SAMPLING  nodes are drawn parents first, from tables and equations; a case that contradicts the
 *                    findings is drawn again
 *  TREE_SAMPLING     drawn down the compiled junction tree: exact under any findings, nothing is rejected;
 *                    asks to compile the net if it is not compiled
 *  AUTO_SAMPLING     forward where there are no findings, or a node without states is asked for; else down
 *                    the junction tree */
enum { AUTO_SAMPLING = 0, FORWARD_SAMPLING = 1, TREE_SAMPLING = 2 };

/** Draws a random case from the distribution of a net given its findings, and enters it as findings.
 *
 *  @param nodes     nodes of one net, each once
 *  @param method    one of the ways above
 *  @param maxtries  cases drawn at most, 1 to INT_MAX; only of FORWARD_SAMPLING
 *
 *  Findings that are there when it is called are conditions on the case, also those of the listed nodes: call
 *  RetractNetFindings_bn before the next independent case.  Each listed node gets the state it drew, and its
 *  value if it was drawn as a number; utility nodes take no finding.  Draws come from the net's generator,
 *  else the environment's.  Undoable.
 *
 *  On a failure (6660: a directed cycle, a delay, a missing table, findings that contradict one another or
 *  every case drawn, ...; 6672 method; 6673 maxtries) nothing is entered.
 *  @return 0, or -1 after an error */
TALORA_API int GenerateRandomCase_bn(const nodelist_bn* nodes, int method, double maxtries);

/** Writes random cases to a stream, in place of what it holds.  A file appears when all are written.
 *
 *  @param num_cases        how many, 0 or more
 *  @param method           as for GenerateRandomCase_bn; maxtries is per case
 *  @param percent_missing  so many of the entries, picked at random, are written as missing: 0 to 100
 *
 *  Findings of the net are conditions on every case and stay as they are.  Forward sampling reports how many
 *  cases were accepted if some were not (notice 6674).
 *  @return the number of cases written: fewer than asked for when halted; -1 after an error */
TALORA_API double WriteRandomCases_bn(const nodelist_bn* nodes, stream_vx* file, double num_cases, int method,
                                      double maxtries, double percent_missing);

/** Writes every combination of states of the nodes to a stream, each with its probability given the findings
 *  of the net as its frequency (column NumCases); nodes with a finding keep it.  The frequencies add up to 1.
 *  Over a million lines ask first.
 *  @return the number of lines written: fewer than there are when halted; -1 after an error */
TALORA_API double WriteEveryCase_bn(const nodelist_bn* nodes, stream_vx* file);

/* ---------------------------------------------------------------------------------------------
 * Case files and case sets
 * ------------------------------------------------------------------------------------------- */

/** Asks the functions that set the characters of case files for the one in force. */
#define QUERY_CASE_CHAR (-1)

/** What to do about nodes that a case file has and the net lacks: do not add them; ask whether to add them;
 *  add them with a notice; add them without one. */
enum { DONT_ADD_NEW, QUERY_ADD_NEW, PRINT_AND_ADD_NEW, QUIETLY_ADD_NEW };

/** Positions of cases in a file are bytes from its beginning; these stand for the first case, for the one
 *  behind the case read last, and for none. */
#define FIRST_CASE_POSN 0.0
#define NEXT_CASE_POSN 9007199254740991.0
#define NO_CASE_POSN (-1.0)

/** An empty set of cases.
 *  @param name  NULL or "" for none */
TALORA_API caseset_cs* NewCaseset_cs(const char* name, environ_vx* env);

/** Deletes a case set and all it holds, but never the files it refers to.  NULL does nothing. */
TALORA_API void DeleteCaseset_cs(caseset_cs* cases);

/** Adds all cases of a case file, on disk or in memory, to a set.  A file on disk is only opened when the
 *  cases are read; of a memory stream the contents are copied.  The stream may be deleted afterwards.
 *  @param degree   each case counts so many times, 0 or more (6528); normally 1
 *  @param options  NULL or "", or "SkipMisfits": cases with a value that fits no state or range are left
 *                  out whole, not just that value */
TALORA_API void AddFileToCaseset_cs(caseset_cs* cases, const stream_vx* file, double degree,
                                    const char* options);

/** Connects to a database through ODBC.
 *
 *  @param connection  "DSN=..." or "Driver=...;..." as the driver manager takes it.  Passwords in it never
 *                     get into a message; it is wiped from memory when the manager goes
 *  @param options     NULL or ""
 *  @return the manager, to be deleted by the caller (or with the environment); NULL after an error: 6690 with
 *          the driver's reason, 6694 where the library was built without ODBC */
TALORA_API dbmgr_cs* NewDatabaseManager_cs(const char* connection, const char* options, environ_vx* env);
TALORA_API void DeleteDatabaseManager_cs(dbmgr_cs* manager); /**< disconnects; NULL does nothing */

/** Adds the cases of a database query, SELECT columns FROM tables WHERE condition, to a set.
 *
 *  @param degree        each case counts so many times, 0 or more (6702)
 *  @param nodes         which node each column is about
 *  @param column_names  columns or expressions in SQL, separated by commas, one for each node (6696); NULL or
 *                       "" for columns called like the nodes (6697)
 *  @param tables        table, or tables with their joins
 *  @param condition     in SQL; NULL or "" for every row
 *  @param options       NULL or ""
 *
 *  Columns IDnum and NumCases of the tables, where there are any, are identification and frequency of the
 *  case. NULL is a missing value.  The query runs now, once; its rows are kept in a case file that the set
 *  removes with itself, and column_names, tables and condition go to the database as they are: never put text
 *  from elsewhere in them. */
TALORA_API void AddDBCasesToCaseset_cs(caseset_cs* cases, dbmgr_cs* manager, double degree,
                                       const nodelist_bn* nodes, const char* column_names, const char* tables,
                                       const char* condition, const char* options);

/** Adds a node to a net for each column of a database query; columns called like a node of the net keep it.
 *
 *  The values of a column become the states: words as state names (as titles too if they are no legal names),
 *  up to 50 different whole numbers as levels.  Other numbers make a continuous node.  More than 1000
 *  different words are refused (6701).  Arguments as for AddDBCasesToCaseset_cs; without column_names all
 *  columns but IDnum and NumCases.  After an error the net is as it was.
 *  @return the node of each column in their order, as AddDBCasesToCaseset_cs takes them; to be deleted by the
 *          caller with DeleteNodeList_bn */
TALORA_API nodelist_bn* AddNodesForColumns_bn(dbmgr_cs* manager, net_bn* net, const char* column_names,
                                              const char* tables, const char* condition, const char* options);

/** Writes all cases of a set to one case file, on disk or in memory.  Its columns are those of all its
 *  sources, in the order in which they come up; a case has "not known" in columns of other sources, and
 *  its NumCases is multiplied by the degree of its source.  The file is replaced as a whole, or stays.
 *  @param options  NULL or "" */
TALORA_API void WriteCaseset_cs(const caseset_cs* cases, stream_vx* file, const char* options);

/** Reads through a set: how many cases (lines) it has, -1 after an error.
 *  @param total_weight  receives the sum of their NumCases times degree; may be NULL */
TALORA_API int64_t CountCasesetCases_cs(const caseset_cs* cases, double* total_weight);

/** Name of a set, "" for none; its sources, counted from 0 (6545 for others), by name and degree. */
TALORA_API const char* GetCasesetName_cs(const caseset_cs* cases);
TALORA_API int CountCasesetSources_cs(const caseset_cs* cases);
TALORA_API const char* GetCasesetSourceName_cs(const caseset_cs* cases, int index);
TALORA_API double GetCasesetSourceDegree_cs(const caseset_cs* cases, int index);

/** The character between the entries of case files that are written: comma, space or tab (6546 for
 *  others).  It must be a comma as long as missing data are a space or nothing (6547).  Files that are read
 *  show theirs in the line of column names.
 *  @return the character before; with QUERY_CASE_CHAR, which changes nothing, the one in force; -1 after an
 *          error */
TALORA_API int SetCaseFileDelimChar_vx(int newchar, environ_vx* env);

/** The character for "not known" in case files: 0 (nothing at all), space, '*', '?' or '-' (6548 for
 *  others).  The first two only while the delimiter is a comma (6549).  On reading, '*' and nothing at all
 *  always mean "not known" as well.
 *  @return as SetCaseFileDelimChar_vx */
TALORA_API int SetMissingDataChar_vx(int newchar, environ_vx* env);

/** Appends the findings of some nodes of one net to a case file as one case.  A file that is not there yet
 *  gets a line of column names first; one that is there keeps its columns, and a finding without a column
 *  is an error (6531).  A likelihood finding is written as "{w1;w2;...}".
 *  @param ID_num  -1: none, and no such column in a new file; less is an error (6550)
 *  @param freq    how often the case occurred; -1: no such column in a new file; other negative numbers
 *                 are errors (6551)
 *  @return the position of the case in the file, NO_CASE_POSN after an error */
TALORA_API double WriteNetFindings_bn(const nodelist_bn* nodes, stream_vx* file, int64_t ID_num, double freq);

/** The position of a case by its number in the file, from 1 (6555 for less); NO_CASE_POSN if there are
 *  fewer.  Reads the file up to there. */
TALORA_API double FindCasePosition_cs(const stream_vx* file, int64_t case_number);

/** Reads one case of a case file into findings of those nodes that have a column; the findings that they
 *  had go.  Undoable; after an error the net is as it was, and NEXT_CASE_POSN leads behind the case.
 *  @param case_posn  position of the case (FIRST_CASE_POSN, or what an earlier call gave), or NEXT_CASE_POSN
 *                    for the one behind the case that was read last through this stream; receives the
 *                    position of the case, NO_CASE_POSN when there is none left.  Negative: 6543
 *  @param add        what to do about columns that are no node of the net: DONT_ADD_NEW, QUERY_ADD_NEW,
 *                    PRINT_AND_ADD_NEW or QUIETLY_ADD_NEW
 *  @param ID_num, freq  receive its IDnum, -1 if there is none, and its NumCases, 1 if there is none; may
 *                    be NULL
 *  @return whether a case was read */
TALORA_API bool_vx ReadNetFindings2_bn(double* case_posn, stream_vx* file, int add, const nodelist_bn* nodes,
                                       int64_t* ID_num, double* freq);

/* ---------------------------------------------------------------------------------------------
 * Learning tables from cases
 * ------------------------------------------------------------------------------------------- */

/** A learner for a method: 1 counting, 2 counting with minimum dependence, 3 expectation maximisation,
 *  4 gradient ascent (5632 for others).  The caller deletes it, or the environment when it closes. */
TALORA_API learner_bn* NewLearner_bn(int method, environ_vx* env);

/** Deletes a learner.  NULL does nothing. */
TALORA_API void DeleteLearner_bn(learner_bn* learner);

/** The most iterations that an iterative method makes; 1000 unless it is set.
 *  @return the number before, -1 after an error (6596 for a negative number) */
TALORA_API int SetLearnerMaxIters_bn(learner_bn* learner, int max_iters);
TALORA_API int GetLearnerMaxIters_bn(const learner_bn* learner);

/** An iterative method stops when minus the log likelihood changes by less than this share of itself; 1e-5
 *  unless it is set.
 *  @return the tolerance before, -1 after an error (6597 for a negative one) */
TALORA_API double SetLearnerMaxTol_bn(learner_bn* learner, double tol);
TALORA_API double GetLearnerMaxTol_bn(const learner_bn* learner);

/** Gives a learner random numbers, from which iterative methods take starting tables for nodes that have none
 *  and are linked to a node that no case has a value for.  Without a generator (NULL) such tables start
 *  uniform, and a hidden node then learns nothing.  The generator stays the caller's; it must be of the same
 *  environment (6598). */
TALORA_API void SetLearnerRandomGen_bn(learner_bn* learner, randgen_vx* generator);
TALORA_API randgen_vx* GetLearnerRandomGen_bn(const learner_bn* learner);

/** Learns the tables of nodes from cases, by the method of the learner.
 *
 *  @param nodes   of one net, each a live node; those that are not nature nodes with states, or have a parent
 *                 without states, are left alone
 *  @param degree  0 or more (6599): each case counts so many times, besides its own weight
 *
 *  Counting takes cases with values for a node and all its parents.  The iterative methods take every case
 *  as a whole; they start from the present tables, or from uniform ones.  Experience that nodes have counts
 *  as cases seen before; Docs/learning.md defines the results.  Findings in the net play no part.  An
 *  iterative method compiles the net if it is not compiled.  Halting keeps what was learned until then.
 *  Undoable.  After an error (6586, 6587: nothing to be learned; 6592: an impossible case; reading errors)
 *  the nodes have the tables they had. */
TALORA_API void LearnCPTs_bn(learner_bn* learner, const nodelist_bn* nodes, const caseset_cs* cases,
                             double degree);

/** Cases that were read in the learning done last, 0 before the first. */
TALORA_API int64_t GetLearnerNumCases_bn(const learner_bn* learner);

/** How many iterations of the learning done last are on record; 0 for counting. */
TALORA_API int GetLearnerNumIterations_bn(const learner_bn* learner);

/** Minus the log likelihood of the cases when an iteration began; the last one is that of the tables learned.
 *  @param iteration  from 0 (6600 when out of range)
 *  @param change     receives the relative change since the iteration before, the undefined number for the
 *                    first; may be NULL
 *  @return the undefined number after an error */
TALORA_API double GetLearnerIteration_bn(const learner_bn* learner, int iteration, double* change);

/** Counts the findings of the net as one case for these nodes, degree times; a negative degree takes such
 *  cases back (6584 when there were fewer).  A node learns when it and all its parents have a finding.  A
 *  likelihood finding counts for every state, in proportion to its weights.  Undoable. */
TALORA_API void ReviseCPTsByFindings_bn(const nodelist_bn* nodes, double degree);

/** The same for every case of a case file; errors 6585 to 6587 too. */
TALORA_API void ReviseCPTsByCaseFile_bn(const nodelist_bn* nodes, const stream_vx* file, double degree);

/* ---------------------------------------------------------------------------------------------
 * Testing a net with cases
 * ------------------------------------------------------------------------------------------- */

/** A tester of how well a net predicts some of its nodes: it is shown cases, without what they say of those
 *  nodes, and compares the beliefs with what was true.
 *  @param test_nodes        nature or decision nodes of one net, each once (6734 none, 6735 different nets,
 *                           6180 twice, 6736 other kinds).  Nodes without states are never applicable.
 *  @param unobserved_nodes  further nodes of the net whose findings are never entered; may be empty
 *  @param tests             -1 (6733)
 *  The caller deletes it, or it goes with the net.  Nodes under test must keep their states. */
TALORA_API tester_bn* NewNetTester_bn(const nodelist_bn* test_nodes, const nodelist_bn* unobserved_nodes,
                                      int tests);

/** Deletes a tester.  NULL does nothing. */
TALORA_API void DeleteNetTester_bn(tester_bn* tester);

/** Runs all cases of a set and adds to what the tester has.  Findings that the net has now play no part and
 *  are not changed; the net is compiled if need be.  Equal cases are propagated once; weights count.  Cases
 *  that are impossible according to the net are named in warnings (6747) and left out.  Progress is reported;
 *  after a halt the cases done are kept (notice 6750), after an error none of this set.
 *  Errors for nodes under test that were deleted (6737) or have other states by now (6738), and those of
 *  compiling and of reading cases. */
TALORA_API void TestWithCaseset_bn(tester_bn* tester, const caseset_cs* cases);

/** Forgets all cases. */
TALORA_API void ClearNetTest_bn(tester_bn* tester);

/** Nodes under test, and nodes not observed, by index from 0; NULL after the last. */
TALORA_API node_bn* GetTestNode_bn(const tester_bn* tester, int index);
TALORA_API node_bn* GetTestUnobservedNode_bn(const tester_bn* tester, int index);

/** How beliefs are sorted for calibration and cutoffs. */
enum {
    FINE_TEST_BINS = 0,   /**< exactly 0, every thousandth, exactly 1: 1002 bins */
    TENTHS_TEST_BINS = 1, /**< ten of equal width */
    TAILS_TEST_BINS = 2,  /**< ten, narrow towards 0 and 1: 0 .01 .05 .1 .25 .5 .75 .9 .95 .99 1 */
    GIVEN_TEST_BINS = 3   /**< as given; lower edges belong to their bins, 1 to the last */
};
typedef int testbins_bn;

/** Chooses the bins for a node before the first case (6742).  The scheme is FINE_TEST_BINS until then.
 *  @param edges      for GIVEN_TEST_BINS: rising, from 0 to 1 (6741), which may be left out; ignored for the
 *                    other schemes
 *  @param num_edges  at most 10000 (6740), given (6778) */
TALORA_API void SetTestBins_bn(tester_bn* tester, const node_bn* node, testbins_bn scheme,
                               const double* edges, int num_edges);
TALORA_API testbins_bn GetTestBinScheme_bn(const tester_bn* tester, const node_bn* node);
TALORA_API int GetTestNumBins_bn(const tester_bn* tester, const node_bn* node);
/** Where a bin begins and ends. In the fine scheme the first bin is 0 alone, the last is 1 alone.
 *  @param upper  receives the upper edge; may be NULL
 *  @return the lower edge */
TALORA_API double GetTestBinEdges_bn(const tester_bn* tester, const node_bn* node, int bin, double* upper);

/* The functions below return the results for one node under test.  They fail for a node that is not under
 * test (6732), was deleted (6737) or has other states by now (6738).  Averages are over the weight of the
 * cases that have a state for the node, and undefined without any.  An infinite result is returned as
 * GetInfinityDbl_vx. */

/** Weight of the cases that had a state for the node.
 *  @param all         if not NULL, gets the weight of all cases that were read
 *  @param impossible  if not NULL, gets the weight of those left out because they are impossible */
TALORA_API double GetTestNumCases_bn(const tester_bn* tester, const node_bn* node, double* all,
                                     double* impossible);

/** Share of cases in which the state with the highest belief (the first of several) was not the actual
 *  state. */
TALORA_API double GetTestErrorRate_bn(const tester_bn* tester, const node_bn* node);
/** Average of -ln b[a], b[a] being the belief in the actual state; infinite once one was 0. */
TALORA_API double GetTestLogLoss_bn(const tester_bn* tester, const node_bn* node);
/** Average of 1 - 2 b[a] + S, S being the sum of the squares of the beliefs: 0 at best, 2 at worst. */
TALORA_API double GetTestQuadraticLoss_bn(const tester_bn* tester, const node_bn* node);
/** Average of b[a] / sqrt (S): 1 at best, 0 at worst. */
TALORA_API double GetTestSphericalPayoff_bn(const tester_bn* tester, const node_bn* node);

/** Weight of the cases with this prediction and this truth (6122 for no such state; 6121 for a node that is
 *  continuous and not discretised). */
TALORA_API double GetTestConfusion_bn(const tester_bn* tester, const node_bn* node, state_bn predicted,
                                      state_bn actual);

/** Weight of the cases whose belief in a state was in a bin (6743).
 *  @param actual  if not NULL, gets the weight of those in which the state was the actual one */
TALORA_API double GetTestCalibration_bn(const tester_bn* tester, const node_bn* node, state_bn state, int bin,
                                        double* actual);

/** Weight of the cases whose belief in a state was extreme.
 *  @param limit      0.01 or 0.1: at most that; 0.9 or 0.99: at least that (6751 for others)
 *  @param surprised  if not NULL, gets the weight of those in which it misled: the state was the actual one
 *                    (limits 0.01 and 0.1), or was not (0.9 and 0.99) */
TALORA_API double GetTestSurprise_bn(const tester_bn* tester, const node_bn* node, state_bn state,
                                     double limit, double* surprised);

/** A measure of one state against all others.
 *  @param measure  true_positives (or hits), true_negatives (correct_rejections), false_positives
 *                  (false_alarms, type_I_errors), false_negatives (misses, type_II_errors): weights;
 *                  sensitivity (true_positive_rate, hit_rate, recall), specificity (true_negative_rate),
 *                  predictive_value (positive_predictive_value, precision), negative_predictive_value,
 *                  false_negative_rate (miss_rate), false_discovery_rate, fall_out, accuracy, error_rate:
 *                  shares; Gini_score, area_under_ROC (AUROC), ROC_curve_dips (1 or 0), which do not depend
 *                  on the cutoff (6744 for others)
 *  @param cutoff   undefined: positive means that the state was the one predicted; 0 to 1 (6746): that the
 *                  belief in it was at least so high, rounded down to the edge of a bin
 *  @return undefined where there is nothing to divide by */
TALORA_API double GetTestStateMeasure_bn(const tester_bn* tester, const node_bn* node, state_bn state,
                                         const char* measure, double cutoff);

/** A point of the curve of the share of positives that are found against the share of others mistaken for
 *  them, from (0, 0), where nothing counts as positive, to (1, 1).  There are GetTestNumBins_bn + 1 points.
 *  @param cutoff               receives the cutoff, from which on a belief counts as positive; infinite at
 *                              the first point
 *  @param false_positive_rate  receives the share of the others mistaken for positives
 *  @param true_positive_rate   receives the share of positives found.  Each pointer may be NULL.
 *  @return false after the last point, and always unless there are cases of both kinds */
TALORA_API bool_vx GetTestRocPoint_bn(const tester_bn* tester, const node_bn* node, state_bn state, int point,
                                      double* cutoff, double* false_positive_rate,
                                      double* true_positive_rate);

/** A measure of the test of real values: for cases with a value for a discretised nature node, its error
 *  against the expected value.
 *  @param measure  cases (weight); mean_absolute_error, max_absolute_error, rms_error; mean_relative_error,
 *                  max_relative_error (of the actual value); mean_deviations, max_deviations (in standard
 *                  deviations of the belief); within_1_deviation, from_1_to_2_deviations,
 *                  from_2_to_3_deviations, above_3_deviations (weights) (6745 for others) */
TALORA_API double GetTestRealMeasure_bn(const tester_bn* tester, const node_bn* node, const char* measure);

/** All figures as text.  A question is asked before printing a confusion matrix of more than 30 states.
 *  A user field `target_state` of the node names the state whose quality of test is reported (warning 6749 if
 *  it names no state); without the field that is done for nodes with two states only, for the first.
 *  @param node  NULL for all nodes under test
 *  @return text that belongs to the tester, valid until the next report */
TALORA_API const char* ReportNetTest_bn(const tester_bn* tester, const node_bn* node);

/** Writes the cases of a set with the beliefs that they give rise to.  Streamed: memory does not grow with
 *  the number of cases, and those with equal findings are propagated once.  Findings that the net has now
 *  play no part and are not changed; the net is compiled if need be.
 *  @param nodes    whose beliefs are written: of one net (6752 none, 6753 different nets, 6754 without
 *                  beliefs, 6180 twice)
 *  @param output   a case file, the cases as they were read with a column "P(NODE=STATE)" for each state; or
 *                  see options.  After an error or a halt (6758) it is as it was.  All files of the set must
 *                  have the same columns (6755) unless JSON is written.
 *  @param options  words with commas between, or NULL.  "jsonl": each case is a JSON object on a line, with
 *                  "case" (its number in the set), "id", "weight", "log_probability" of its findings and
 *                  "beliefs" by node and state.  "whole": what a case says of the nodes themselves is entered
 *                  too; without it that is left out, as it is to be predicted.
 *  Cases that are impossible according to the net have no beliefs: "*" or null, and a warning (6757).
 *  @return how many cases were written, undefined after an error */
TALORA_API double WriteCaseBeliefs_bn(const caseset_cs* cases, const nodelist_bn* nodes, stream_vx* output,
                                      const char* options);

/* ---------------------------------------------------------------------------------------------
 * Sensitivity to findings
 * ------------------------------------------------------------------------------------------- */

/** What a measurer is asked to find; added up. */
enum {
    BELIEF_SENSV = 1,     /* how much each belief of the query node changes */
    ENTROPY_SENSV = 2,    /* entropy reduction, which is mutual information */
    REAL_SENSV = 4,       /* how much the mean of the query node's real value changes */
    NODEVAR_SENSV = 8,    /* variance of the query node's beliefs */
    RATIO_SENSV = 16,     /* by which factor each belief of the query node may change */
    VARIANCE_SENSV = 256, /* variance of those changes */
    RANGE_SENSV = 512     /* smallest and largest of those changes */
};

/** A measurer of how much findings at the varying nodes are expected to change the beliefs of the query node.
 *  @param varying    nodes of the same net, copied; the query node may be among them
 *  @param what_find  which measures, BELIEF_SENSV and so on
 *  The caller deletes it, or it goes with the net.  The first question to it finds all measures, compiling
 *  the net if need be, with one propagation for each possible state of the query node; they are kept until
 *  the beliefs of the net change.  The findings of the net stay as they are.  Docs/sensitivity.md defines the
 *  measures.  A measure that was not asked for here fails (2520 to 2528), and so does a question about a node
 *  that is not among the varying nodes (6787), a query node without states (6784) or deleted (6783), and a
 *  net that cannot be compiled or updated.  Errors here: nodes of two nets 6782, unknown flags 6790. */
TALORA_API sensv_bn* NewSensvToFinding_bn(const node_bn* query, const nodelist_bn* varying, int what_find);

/** Deletes a measurer.  NULL does nothing. */
TALORA_API void DeleteSensvToFinding_bn(sensv_bn* sensv);

/** What the measurer was made with. Lists belong to it; a node deleted since is NULL. */
TALORA_API node_bn* GetSensvQueryNode_bn(const sensv_bn* sensv);
TALORA_API const nodelist_bn* GetSensvVaryingNodes_bn(const sensv_bn* sensv);
TALORA_API int GetSensvWhatFound_bn(const sensv_bn* sensv);

/** Mutual information of the query node and a varying node in bits: how much of the query node's entropy a
 *  finding there is expected to take away.  Of the query node itself: its entropy.  Needs ENTROPY_SENSV
 *  (2520). */
TALORA_API double GetMutualInfo_bn(sensv_bn* sensv, const node_bn* varying);

/** Expected reduction of the variance of the query node's real value by a finding at a varying node.  Of the
 *  query node itself: that variance.  Needs REAL_SENSV (6788) and VARIANCE_SENSV (6789); fails where states
 *  have no values (6786) or an interval has an infinite end without a bound (6785). */
TALORA_API double GetVarianceOfReal_bn(sensv_bn* sensv, const node_bn* varying);

/** Expected reduction of the variance of the query node's beliefs by a finding at a varying node.  Of the
 *  query node itself: that variance, the sum of p (1 - p)^2.  Needs NODEVAR_SENSV (2521). */
TALORA_API double GetVarianceOfBeliefs_bn(sensv_bn* sensv, const node_bn* varying);

/** The largest belief in a state of the query node after a finding at a varying node divided by the smallest:
 *  1 if none changes it, infinite if one rules the state out.  Needs RATIO_SENSV (2522). */
TALORA_API double GetSensitivityRatio_bn(sensv_bn* sensv, const node_bn* varying, state_bn query_state);

/** Expected size of the change of the belief in a state of the query node by a finding at a varying node.
 *  @param variance  receives the expected square of the change; needs VARIANCE_SENSV (2524); may be NULL
 *  @param least     receives the smallest change, with its sign; needs RANGE_SENSV (2525); may be NULL
 *  @param greatest  receives the largest change, likewise
 *  Needs BELIEF_SENSV (2523).  The smallest belief there may be is the present one plus the least change. */
TALORA_API double GetBeliefChange_bn(sensv_bn* sensv, const node_bn* varying, state_bn query_state,
                                     double* variance, double* least, double* greatest);

/** The same for the mean of the query node's real value.  Needs REAL_SENSV (2526), VARIANCE_SENSV (2527),
 *  RANGE_SENSV (2528); other errors as for GetVarianceOfReal_bn. */
TALORA_API double GetMeanChange_bn(sensv_bn* sensv, const node_bn* varying, double* variance, double* least,
                                   double* greatest);

/** Bounds on the query node's real value that stand for infinite ends of its intervals, undefined for none
 *  (then measures of the real value fail with 6785).  Bounds inside the finite ends fail (6791, 6792). */
TALORA_API void SetSensvRealBounds_bn(sensv_bn* sensv, double lower, double upper);
/** The bounds back; each pointer may be NULL. */
TALORA_API void GetSensvRealBounds_bn(const sensv_bn* sensv, double* lower, double* upper);

/** How findings at one varying node change the beliefs and the mean of the query node, as text.
 *  Where the real value has an infinite end and no bound, the question handler is asked for one; without an
 *  answer the figures of the real value are left out.
 *  @return text that stays until the next report of this measurer */
TALORA_API const char* ReportSensvToNode_bn(sensv_bn* sensv, const node_bn* varying);
/** One row for each varying node, the most informative first; otherwise as above. */
TALORA_API const char* ReportSensvToAll_bn(sensv_bn* sensv);
/** The same as a table in HTML, to be put into a page. */
TALORA_API const char* ReportSensvHtml_bn(sensv_bn* sensv);

#ifdef __cplusplus
}
#endif
#endif
