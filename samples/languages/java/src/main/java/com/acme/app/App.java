package com.acme.app;

import com.acme.util.Strings;
import com.acme.model.*;
import static com.acme.model.Shape.area;
import java.util.List;

/* import com.acme.util.Hidden; is a comment, not an import */
public class App extends Base implements Runnable {
  private final String banner = "import com.acme.Nothing;";

  public void run() {
    System.out.println(Strings.join(banner) + area(new Circle()));
  }
}
