namespace Shop
{
    namespace Util
    {
        using Shop.Models;

        public static class Text { }
    }
}
