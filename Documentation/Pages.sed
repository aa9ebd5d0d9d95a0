# From build/reference the way to a file is longer than from the pages.
s|](\.\./|](../../|g

# The names by which links within a page find its headings: small letters, hyphens for blanks.
/^##\+ / {
  h
  s/^#* //
  s/.*/\L&/
  s/[^a-z0-9 -]//g
  s/ /-/g
  x
  G
  s/\n\(.*\)/ {#\1}/
}

# Within backticks Doxygen shows the backslash that a "|" has in a table.
/^|.*\\|/ s|`\([^`]*\)`|<code>\1</code>|g
