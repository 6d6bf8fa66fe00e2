// Type declarations for apps that are pages: webapis.kv and the runtime
// object (kv.d.ts) beside the DOM, console and timers of the web engine.
// docs/api.md describes every member.
//
// Use them for type-checking a page app's scripts, for example:
//   tsc --noEmit --allowJs --checkJs --lib es2020,dom --moduleDetection force \
//       types/page.d.ts myapp/main.js
/// <reference path="kv.d.ts" />
/// <reference lib="dom" />
