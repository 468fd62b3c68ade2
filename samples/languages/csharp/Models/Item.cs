namespace Shop.Models;

public class Item { }
