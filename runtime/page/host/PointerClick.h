// A click as a person makes it: the pointer moves to a point of the web view,
// its first button goes down and up there. The events go through GTK to the
// engine, which makes trusted DOM events of them (pointer, mouse, click).
#ifndef KV_PAGE_POINTER_CLICK_H
#define KV_PAGE_POINTER_CLICK_H

#include <webkit2/webkit2.h>

namespace Kv {
namespace Page {

// `x` and `y` are in the view's pixels, from its top left corner.
void clickAt(WebKitWebView* view, double x, double y);

}  // namespace Page
}  // namespace Kv

#endif
