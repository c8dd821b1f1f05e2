// The words of a package list, shared by the interpreter and by pkglist's
// checks, so that both read a line the same way.
//
//   COMMAND NAME [EXTRA] [ATTRIBUTE VALUE]...
#pragma once

namespace pkglist {

/// Commands in FindToken order; any other word is carried out as `c`.
constexpr const char *COMMANDS = ",dir,dirto,t,c,m,#,v,s,newdir,checkps";
enum Command {
    PL_UNKNOWN = 0,
    PL_DIR,
    PL_DIRTO,
    PL_TOUCH,
    PL_COPY,
    PL_MUST_EXIST,
    PL_COMMENT,
    PL_RELEASE,
    PL_SAME_AS_M,
    PL_NEWDIR,
    PL_CHECKPS
};
/// Attributes in FindToken order; any other word is passed over.
constexpr const char *ATTRIBUTES = ",mode,bat,owner,group,link,name,sed";
enum Attribute { AT_UNKNOWN = 0, AT_MODE, AT_BAT, AT_OWNER, AT_GROUP, AT_LINK, AT_NAME, AT_SED };
/// Operators of `v`, in FindToken order.
constexpr const char *OPERATORS = ",<,<=,=,>,>=,";
enum Operator { OP_UNKNOWN = 0, OP_LESS, OP_LESS_EQUAL, OP_EQUAL, OP_GREATER, OP_GREATER_EQUAL };

constexpr const char *WORD_SEPARATORS = " \r\n";  ///< tabs are part of words
constexpr const char *REST_OF_LINE = "\r\n";      ///< what a leading sed takes

}  // namespace pkglist
