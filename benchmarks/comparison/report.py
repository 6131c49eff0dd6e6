"""Tables in Markdown."""

import statistics


def median(values):
    return statistics.median(values) if values else None


def number(value, digits=1):
    return "" if value is None else "{:,.{}f}".format(value, digits)


def spread(values, digits=1):
    """The median, and the least and greatest behind it when there are several."""
    if not values:
        return ""
    if len(values) == 1:
        return number(values[0], digits)
    return "%s (%s-%s)" % (number(median(values), digits), number(min(values), digits), number(max(values), digits))


def ratio(values, others):
    """The median of the ratios round by round."""
    if not values or not others:
        return None
    return median([mine / other for mine, other in zip(values, others)])


def table(head, rows):
    """A table; the first column is text, the others are numbers."""
    lines = ["| " + " | ".join(head) + " |", "|---|" + "--:|" * (len(head) - 1)]
    lines += ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]
    return "\n".join(lines)
