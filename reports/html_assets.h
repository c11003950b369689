#pragma once
// The fixed parts of the HTML page: its styles, the frame of the timeline,
// and the script that draws the timeline and sorts and filters the table.
// They hold nothing of the evidence, which reaches the script only through
// the page's elements, read as text.

extern char const html_style[];
extern char const html_timeline_frame[];
extern char const html_script[];
// The script's SHA-256 in base64: the page's security policy lets a script
// with this hash run, and no other, so nothing a Prefetch file holds can
// run even if it ever reached the page as markup. Changed with the script.
extern char const html_script_sha256[];
