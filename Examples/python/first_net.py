"""Builds a net, asks it, learns its tables from cases and saves it.

    python3 Examples/python/first_net.py [FILE]"""

import sys

import talora


def build(app):
    """Rain and the sprinkler make the grass wet."""
    net = app.NewBNet("Garden")
    rain = net.NewNode("Rain", "yes,no")
    sprinkler = net.NewNode("Sprinkler", "on,off")
    grass = net.NewNode("Grass", "wet,dry")
    sprinkler.AddLink(rain)
    grass.AddLink(rain)
    grass.AddLink(sprinkler)

    rain.table = {"yes": 0.2, "no": 0.8}
    sprinkler.table = {"yes": [0.01, 0.99], "no": [0.4, 0.6]}
    grass.table = {
        ("yes", "on"): [0.99, 0.01],
        ("yes", "off"): [0.8, 0.2],
        ("no", "on"): [0.9, 0.1],
        ("no", "off"): [0.0, 1.0],
    }
    return net


def main():
    with talora.Application() as app:
        net = build(app)
        print(net)

        net.findings["Grass"] = "wet"
        print("The grass is wet. Rain:", net["Rain"].beliefs)
        net.findings["Sprinkler"] = "on"
        print("The sprinkler was on. Rain:", net["Rain"].beliefs)
        print("Probability of both:", round(net.FindingsProbability, 4))
        net.findings.clear()

        print("What is most informative about rain:")
        measurer = talora.Sensitivity(net["Rain"], ["Sprinkler", "Grass"])
        for node in measurer.VaryingNodes:
            print(f"  {node.name}: {measurer.MutualInfo(node):.4f} bits")

        # Cases drawn from the net teach a copy without tables.
        net.RandomGenerator = app.NewRandomGenerator(seed=1)
        cases = app.NewMemoryStream("garden.cas")
        net.WriteRandomCases(cases, 2000)
        learned = net.Copy("Learned", options="no_tables")
        app.NewLearner("counting").LearnCPTs(learned, cases)
        print(learned["Grass"].table)

        if len(sys.argv) > 1:
            learned.Write(sys.argv[1])


if __name__ == "__main__":
    main()
