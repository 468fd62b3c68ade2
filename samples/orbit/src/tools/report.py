"""Summarises the areas that the app prints."""


class Report:
    def __init__(self, areas):
        self.areas = list(areas)

    def summarize(self):
        return {"count": len(self.areas), "total": sum(self.areas)}
