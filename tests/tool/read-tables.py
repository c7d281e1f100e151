#!/usr/bin/python3
"""Reads the tables of a csv, xlsx or markdown file with programs that know nothing about the tool.

Prints a JSON list of tables: {"name": [HEADING, ...], "rows": [[CELL, ...], ...]}. The name of a table in Markdown is
the path of its headings. Cells are texts, of a workbook also numbers. For a workbook, each table has its frozen cell,
filter and the headings of hidden columns, too, and a cell that is not plain is an object.
"""
import csv
import html.parser
import json
import subprocess
import sys


def read_csv(file):
    with open(file, encoding="utf-8", newline="") as text:
        if text.read(1) == "\ufeff":
            raise ValueError("byte-order mark")
        text.seek(0)
        return [{"name": [], "rows": list(csv.reader(text, strict=True))}]


def read_xlsx(file):
    import openpyxl
    from openpyxl.utils.escape import unescape

    def plain(cell):
        if cell.hyperlink or cell.data_type == "f":
            return {"type": cell.data_type, "value": str(cell.value)}
        return unescape(cell.value) if isinstance(cell.value, str) else cell.value

    with open(file, "rb") as opened:
        book = openpyxl.load_workbook(opened)
    return [
        {
            "name": [sheet.title],
            "rows": [[plain(cell) for cell in row] for row in sheet.iter_rows()],
            "frozen": sheet.freeze_panes,
            "filter": sheet.auto_filter.ref,
            "hidden": [cell.value for cell in sheet[1] if sheet.column_dimensions[cell.column_letter].hidden],
        }
        for sheet in book
    ]


class Tables(html.parser.HTMLParser):
    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.tables, self.path, self.text = [], [], None
        self.allowed = {"table", "thead", "tbody", "tr", "th", "td", "p", "h1", "h2", "h3"}

    def handle_starttag(self, tag, attributes):
        # cmark-gfm makes links from e-mail addresses even if they are escaped. Their text stays.
        is_address = tag == "a" and len(attributes) == 1 and attributes[0][1].startswith("mailto:")
        if not is_address and (tag not in self.allowed or attributes):
            raise ValueError(f"a name became markup: {tag} {attributes}")
        if tag == "table":
            self.tables.append({"name": list(self.path), "rows": []})
        if tag == "tr":
            self.tables[-1]["rows"].append([])
        if tag in ("th", "td") or tag[0] == "h" and tag[1:].isdigit():
            self.text = ""

    def handle_data(self, data):
        if self.text is not None:
            self.text += data

    def handle_comment(self, data):
        raise ValueError(f"a name became a comment: {data}")

    def handle_endtag(self, tag):
        if tag in ("th", "td"):
            self.tables[-1]["rows"][-1].append(self.text)
            self.text = None
        elif tag[0] == "h" and tag[1:].isdigit():
            self.path = self.path[: int(tag[1:]) - 1] + [self.text]
            self.text = None


def read_markdown(file):
    extensions = [word for name in ("table", "strikethrough", "autolink") for word in ("-e", name)]
    page = subprocess.run(["cmark-gfm", "--unsafe", *extensions, file], check=True, stdout=subprocess.PIPE).stdout
    tables = Tables()
    tables.feed(page.decode("utf-8"))
    return tables.tables


form, file = sys.argv[1:]
print(json.dumps({"csv": read_csv, "xlsx": read_xlsx, "markdown": read_markdown}[form](file)))
