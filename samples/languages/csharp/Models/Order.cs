namespace Shop.Models
{
    using Shop.Util;

    public class Order { }
}
