#ifndef BLDOM_H
#define BLDOM_H
/* XML trees with a small path language:
 *   /ROOT/CHILD/LEAF                    every LEAF under CHILD under ROOT
 *   /ROOT/ITEM[@name="text"]/LEAF       only ITEMs whose attribute is that text
 *   /ROOT/ITEM[@id=3]/LEAF              the same with a bare value
 * Paths are printf-style formats. */

#ifdef __cplusplus
extern "C" {
#endif

typedef struct BLDOMRec* BLDOM;
typedef const void* BLDOMNode;

/* From a file, or from the standard output of a command for a source that
 * starts with "popen://" (the command is started without a shell, and killed
 * if it does not finish within the BLCORE_Spawn timeout). Null on a parse error. */
BLDOM BLDOM_CreateFromXMLFile(const char* source);
BLDOM BLDOM_CreateFromXMLString(const char* text, int size);
void BLDOM_Destroy(BLDOM dom);

/* The first node on the path, or null. */
BLDOMNode BLDOM_FindNode(BLDOM dom, const char* format, ...) __attribute__((format(printf, 2, 3)));
/* The nodes on the path, in document order. With a null array only counts;
 * otherwise stores at most max of them. Returns the count of all matches. */
int BLDOM_FindNodes(BLDOM dom, BLDOMNode* nodes, int max, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
/* Text of a node and its descendants, or of an attribute; "" for a missing
 * node, null for a missing attribute. The text lives as long as the tree. */
const char* BLDOM_NodeTextContent(BLDOM dom, BLDOMNode node);
const char* BLDOM_NodeAttributeTextValue(BLDOM dom, BLDOMNode node, const char* name);

#ifdef __cplusplus
}
#endif
#endif
