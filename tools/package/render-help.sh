#!/usr/bin/env bash
# render-help.sh DOCS_DIR OUT_DIR
# Renders the Markdown reference in DOCS_DIR into the flat folder of HTML help pages that the
# package carries: README.md becomes index.html, every other page NAME.html, and links between
# the pages follow. Headings get the anchors that the pages link to; raw HTML in the pages (extra
# anchors) is kept.
set -euo pipefail

[ $# -eq 2 ] || { echo "usage: render-help.sh DOCS_DIR OUT_DIR" >&2; exit 2; }
docs=$1
out=$2
mkdir -p "$out"

page_name() {
  local base
  base=$(basename "$1" .md)
  if [ "$base" = README ]; then echo index; else echo "$base"; fi
}

for md in "$docs"/*.md; do
  name=$(page_name "$md")
  title=$(sed -n 's/^# //p' "$md" | head -n1)
  body=$(cmark-gfm --unsafe --extension table --extension autolink --extension strikethrough "$md" |
    perl -pe '
      # Links to the other pages: README.md is index.html, NAME.md is NAME.html.
      s/href="README\.md(#[^"]*)?"/href="index.html$1"/g;
      s/href="([A-Za-z0-9_.-]+)\.md(#[^"]*)?"/href="$1.html$2"/g;
      # Anchors on headings, made from their text as the links expect: lower case, letters,
      # digits, spaces turned into hyphens, hyphens and underscores kept.
      s{<h([1-6])>(.*?)</h\1>}{
        my ($level, $html) = ($1, $2);
        (my $slug = lc $html) =~ s/<[^>]*>//g;
        $slug =~ s/&[a-z]+;|&#[0-9]+;//g;
        $slug =~ s/[^a-z0-9 _-]//g;
        $slug =~ s/ /-/g;
        $slug .= "-" . $seen{$slug} if $seen{$slug}++;
        "<h$level id=\"$slug\">$html</h$level>"
      }ge;
    ')
  cat >"$out/$name.html" <<EOF
<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>$title</title>
<style>
body { font-family: sans-serif; max-width: 50em; margin: 2em auto; padding: 0 1em; line-height: 1.4; }
pre, code { font-family: monospace; background: #f4f4f4; }
pre { padding: 0.6em; overflow-x: auto; }
table { border-collapse: collapse; }
th, td { border: 1px solid #ccc; padding: 0.2em 0.5em; text-align: left; vertical-align: top; }
</style>
</head>
<body>
$body
</body>
</html>
EOF
done

# Every link between the pages must reach a page and an anchor that exist.
status=0
for html in "$out"/*.html; do
  while read -r link; do
    target=${link%%#*}
    anchor=${link#"$target"}
    anchor=${anchor#\#}
    [ -n "$target" ] || target=$(basename "$html")
    if [ ! -f "$out/$target" ]; then
      echo "$(basename "$html"): link to missing page $link" >&2
      status=1
    elif [ -n "$anchor" ] && ! grep -q "id=\"$anchor\"" "$out/$target"; then
      echo "$(basename "$html"): link to missing anchor $link" >&2
      status=1
    fi
  done < <(grep -o 'href="[^":]*"' "$html" | sed 's/^href="//; s/"$//')
done
exit $status
