"""Prints llvm-cov's summary of branches as a table: the named files, the least covered one first, and their folders."""
import json
import os
import sys


def total(name, rows):
    return name, sum(row[1] for row in rows), sum(row[2] for row in rows)


def main():
    files = json.load(sys.stdin)['data'][0]['files']
    rows = [(os.path.relpath(file['filename']), file['summary']['branches']) for file in files]
    rows = [(name, branches['covered'], branches['count'])
            for name, branches in rows if name in sys.argv[1:] and branches['count'] > 0]
    rows.sort(key=lambda row: row[1] / row[2])
    folders = sorted({os.path.dirname(name) for name, _, _ in rows})
    sums = [total(folder + '/', [row for row in rows if os.path.dirname(row[0]) == folder]) for folder in folders]
    for name, covered, count in rows + sums + [total('all', rows)]:
        print(f'{100 * covered / count:6.1f} %  {covered:5} of {count:5}  {name}')


main()
